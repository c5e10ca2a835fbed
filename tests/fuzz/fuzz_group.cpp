// Group lines: whatever the file holds, exactly its well-formed entries come out.
#include "tar/lookup.h"
#include "tests/fuzz/entry_lines.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const UniqueFd file = file_of(data, size);
    const std::string text(reinterpret_cast<const char*>(data), size);
    size_t at = 0;
    for (size_t end; (end = text.find('\n', at)) != std::string::npos;) {
        const std::vector<std::string> fields = entry_fields(text.substr(at, end - at), 32766, 4, {2});
        at = end + 1;
        if (fields.empty()) {
            continue;
        }
        const group* const entry = read_group_entry(file.get());
        require(entry != nullptr && lseek(file.get(), 0, SEEK_CUR) == static_cast<off_t>(at));
        require(fields[0] == entry->gr_name && fields[1] == entry->gr_passwd &&
                id_of(fields[2]) == entry->gr_gid);
        // The members joined again are the list, except that a last comma adds none.
        std::string members;
        for (char** member = entry->gr_mem; *member != nullptr; ++member) {
            members += std::string(*member) + ",";
        }
        const bool last_comma = !fields[3].empty() && fields[3].back() == ',';
        require(members == (fields[3].empty() || last_comma ? fields[3] : fields[3] + ","));
    }
    require(read_group_entry(file.get()) == nullptr);
    return 0;
}
