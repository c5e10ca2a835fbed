// User lines: whatever the file holds, exactly its well-formed entries come out.
#include "tar/lookup.h"
#include "tests/fuzz/entry_lines.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const UniqueFd file = file_of(data, size);
    const std::string text(reinterpret_cast<const char*>(data), size);
    size_t at = 0;
    for (size_t end; (end = text.find('\n', at)) != std::string::npos;) {
        const std::vector<std::string> fields = entry_fields(text.substr(at, end - at), 255, 7, {2, 3});
        at = end + 1;
        if (fields.empty()) {
            continue;
        }
        const passwd* const user = __getpwent(file.get());
        require(user != nullptr && lseek(file.get(), 0, SEEK_CUR) == static_cast<off_t>(at));
        require(fields[0] == user->pw_name && fields[1] == user->pw_passwd && fields[4] == user->pw_gecos);
        require(fields[5] == user->pw_dir && fields[6] == user->pw_shell);
        require(id_of(fields[2]) == user->pw_uid && id_of(fields[3]) == user->pw_gid);
    }
    require(__getpwent(file.get()) == nullptr);
    return 0;
}
