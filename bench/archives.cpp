// Writing and reading archives.
#include <filesystem>
#include <random>

#include "bench/measure.h"
#include "bench/measurements.h"

namespace bench {

namespace {

constexpr char FOLDER[] = "/data/archives";
constexpr size_t LARGE_FILE_SIZE = 64 * 1024 * 1024;
constexpr int FOLDERS = 50, FILES_IN_A_FOLDER = 100;
constexpr unsigned SMALL_FILE_MAX = 2000;  // bytes

// The largest ratio to a tool that holds.
struct Goal {
    const char* tool;
    double most;
};

// What is packed: a folder of FOLDER.
struct Input {
    const char* what;
    const char* folder;
    Goal writer, reader;
};

constexpr Input INPUTS[] = {
    {"a file of 64 MiB", "large", {"floor", 1.05}, {"bsdtar", 1.3}},
    {"5,000 small files", "tree", {"floor", 1.15}, {"GNU tar", 1.25}},
};

struct Tool {
    const char* name;
    std::vector<std::string> create;   // then the archive and what to pack
    std::vector<std::string> extract;  // then the archive; empty: it extracts nothing
};

// The first is what the others are compared with.
std::vector<Tool> tools() {
    const std::string dmd_tar = build_folder() + "dmd_tar";
    return {{"dmd", {dmd_tar, "-cf"}, {dmd_tar, "-xf"}},
            {"floor", {build_folder() + "tar_floor"}, {}},
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

std::string archive_of(const Tool& tool) {
    return std::string(tool.name) + ".tar";
}

double time_writing(const Tool& tool, const char* packed) {
    std::filesystem::remove(archive_of(tool));
    std::vector<std::string> words = tool.create;
    words.insert(words.end(), {archive_of(tool), packed});
    return time_program(words);
}

// All extract the daemon's archive.
double time_reading(const Tool& tool) {
    std::filesystem::remove_all("out");
    std::filesystem::create_directory("out");
    std::filesystem::current_path("out");
    std::vector<std::string> words = tool.extract;
    words.emplace_back("../dmd.tar");
    const double took = time_program(words);
    std::filesystem::current_path(FOLDER);
    return took;
}

void add_rows(const std::string& what, const std::vector<Tool>& compared, const std::vector<Figure>& figures,
              const Goal& goal) {
    for (size_t i = 1; i < compared.size(); ++i) {
        const std::string name = compared[i].name;
        add_times(what, figures[0].median, name, figures[i], name == goal.tool ? goal.most : 0);
    }
}

void measure(const Input& input, int rounds) {
    const std::vector<Tool> writers = tools();
    std::vector<Tool> readers;
    std::vector<Run> writing, reading;
    for (const Tool& tool : writers) {
        writing.push_back([&tool, &input] { return time_writing(tool, input.folder); });
        if (!tool.extract.empty()) {
            readers.push_back(tool);
            reading.push_back([&tool] { return time_reading(tool); });
        }
    }
    const std::string what = input.what;
    add_rows("archive writer, " + what, writers, compare(rounds, writing), input.writer);
    time_program({"cmp", "dmd.tar", "floor.tar"});
    add_rows("archive reader, " + what, readers, compare(rounds, reading), input.reader);
    time_reading(writers[0]);
    time_program({"diff", "-r", input.folder, std::string("out/") + input.folder});
    time_program({"tar", "-df", "dmd.tar", "-C", "out"});
}

}  // namespace

void measure_archives(int rounds) {
    std::filesystem::create_directories(FOLDER);
    std::filesystem::current_path(FOLDER);
    make_inputs();
    for (const Input& input : INPUTS) {
        measure(input, rounds);
    }
    std::filesystem::current_path("/");
    std::filesystem::remove_all(FOLDER);
}

}  // namespace bench
