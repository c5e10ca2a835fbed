// Breaking the time of an error down.
#include "output/error_info.h"

tm local_time(int32_t seconds) {
    const time_t time = seconds;
    tm broken_down = {};
    tzset();  // localtime_r, unlike localtime, need not notice that the phone has changed its time zone
    localtime_r(&time, &broken_down);
    return broken_down;
}
