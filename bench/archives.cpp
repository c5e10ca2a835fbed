// Writing and reading archives.
#include <algorithm>
#include <filesystem>
#include <random>

#include "bench/measure.h"
#include "bench/measurements.h"

namespace bench {

namespace {

constexpr double FLOOR_GOAL = 1.05;
constexpr char FOLDER[] = "/data/archives";
constexpr size_t LARGE_FILE_SIZE = 64 * 1024 * 1024;
constexpr int FOLDERS = 50, FILES_IN_A_FOLDER = 100;
constexpr unsigned SMALL_FILE_MAX = 2000;  // bytes

struct Tool {
    std::string name;
    std::vector<std::string> create;   // then the archive and what to pack
    std::vector<std::string> extract;  // then the archive
};

std::vector<Tool> tools() {
    const std::string dmd_tar = build_folder() + "dmd_tar", floor = build_folder() + "tar_floor";
    return {{"dmd", {dmd_tar, "-cf"}, {dmd_tar, "-xf"}},
            {"floor", {floor, "-cf"}, {floor, "-xf"}},
            {"GNU tar", {"tar", "--format=ustar", "-cf"}, {"tar", "-xf"}},
            {"bsdtar", {"bsdtar", "--format=ustar", "-cf"}, {"bsdtar", "-xf"}}};
}

std::string text_of(size_t size, std::minstd_rand* random) {
    std::string text(size, '\0');
    for (char& letter : text) {
        letter = static_cast<char>('0' + ((*random)() >> 8) % 64);
    }
    return text;
}

void make_inputs() {
    std::minstd_rand random(1);
    std::filesystem::create_directories("large");
    write_file("large/file", text_of(LARGE_FILE_SIZE, &random));
    for (int folder = 0; folder < FOLDERS; ++folder) {
        const std::string path = "tree/" + to_string(folder) + "/";
        std::filesystem::create_directories(path);
        for (int file = 0; file < FILES_IN_A_FOLDER; ++file) {
            write_file(path + to_string(file), text_of(random() % SMALL_FILE_MAX, &random));
        }
    }
}

void add_rows(const std::string& what, const std::vector<Figure>& taken, bool to_beat) {
    const auto all = tools();
    for (size_t i = 1; i < all.size(); ++i) {
        const bool fastest = i > 1 && taken[i].median == std::min(taken[2].median, taken[3].median);
        const double goal = i == 1 ? FLOOR_GOAL : to_beat && fastest ? 1.0 : 0.0;
        add_times(what, taken[0].median, all[i].name, taken[i], goal);
    }
}

void measure(const std::string& what, const std::string& packed, int rounds) {
    std::vector<Run> creating, extracting;
    for (const Tool& tool : tools()) {
        creating.push_back([=] {
            std::filesystem::remove(tool.name + ".tar");
            auto words = tool.create;
            words.insert(words.end(), {tool.name + ".tar", packed});
            return time_program(words);
        });
        extracting.push_back([=] {
            std::filesystem::remove_all("out");
            std::filesystem::create_directory("out");
            std::filesystem::current_path("out");
            auto words = tool.extract;
            words.emplace_back("../dmd.tar");
            const double took = time_program(words);
            std::filesystem::current_path(FOLDER);
            return took;
        });
    }
    add_rows("archive writer, " + what, compare(rounds, creating), false);
    time_program({"cmp", "dmd.tar", "floor.tar"});
    add_rows("archive reader, " + what, compare(rounds, extracting), true);
    for (size_t i = 0; i < 2; ++i) {
        extracting[i]();
        time_program({"diff", "-r", packed, "out/" + packed});
        time_program({"tar", "-df", "dmd.tar", "-C", "out"});
    }
}

}  // namespace

void measure_archives(int rounds) {
    std::filesystem::create_directories(FOLDER);
    std::filesystem::current_path(FOLDER);
    make_inputs();
    measure("a file of 64 MiB", "large", rounds);
    measure("5,000 small files", "tree", rounds);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(FOLDER);
}

}  // namespace bench
