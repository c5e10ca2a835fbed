// The product version query.
#include "daemon/product_version.h"

#include <strings.h>

#include "platform/log.h"
#include "platform/properties.h"

namespace {

constexpr char DEBUG_PROPERTY[] = "persist.sys.qelvan.debug.on";

}  // namespace

int identify_product_version() {
    char value[PROPERTY_VALUE_MAX] = {};
    if (property_get(DEBUG_PROPERTY, value, "") == 0) {
        LOG_M("get property:%s failed.\n", DEBUG_PROPERTY);
        return 1;
    }
    const int is_commercial_version = strncasecmp(value, "1", PROPERTY_VALUE_MAX) == 0 ? 0 : 1;
    return is_commercial_version;
}
