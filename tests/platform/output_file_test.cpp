#include "platform/output_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string content_of(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class OutputFile : public testing::Test {
  protected:
    OutputFile() {
        std::string name = testing::TempDir() + "output_XXXXXX";
        fs::current_path(mkdtemp(name.data()));
        std::ofstream("victim") << "kept";
    }
    ~OutputFile() override {
        const fs::path folder = fs::current_path();
        fs::current_path("/");
        fs::remove_all(folder);
    }
};

TEST_F(OutputFile, IsNewOrOnesOwnAndNothingElse) {
    const auto give_away = [] { return chown("out", 65534, 65534) == 0; };
    const std::tuple<const char*, std::function<bool()>, const char*> cases[] = {
        {"nothing", [] { return true; }, "old new"},
        {"a file", [] { return std::ofstream("out") << "old ", true; }, "old new"},
        {"a link", [] { return symlink("victim", "out") == 0; }, nullptr},
        {"a link to nothing", [] { return symlink("nowhere", "out") == 0; }, nullptr},
        {"a second name", [] { return link("victim", "out") == 0; }, nullptr},
        {"a pipe", [] { return mkfifo("out", 0600) == 0; }, nullptr},
        {"a folder", [] { return mkdir("out", 0700) == 0; }, nullptr},
        {"another user's", [&] { return std::ofstream("out") << "x", give_away(); }, nullptr},
    };
    for (const auto& [name, make, content] : cases) {
        SCOPED_TRACE(name);
        if (!make()) continue;  // a file is given away by root alone
        {
            OUTPUT_STREAM stream("out");
            EXPECT_EQ(!stream, content == nullptr);
            stream << "old ";
        }
        const int file = open_output_file("out", OUTPUT::APPENDED);
        EXPECT_EQ(file < 0, content == nullptr);
        if (file >= 0) write_output(file, "new"), close_output_file(file);
        if (content != nullptr) {
            EXPECT_EQ(content_of("out"), content);
        }
        EXPECT_EQ(content_of("victim"), "kept");
        EXPECT_FALSE(fs::exists("nowhere"));
        fs::remove("out");
    }
}

TEST_F(OutputFile, IsNoStandardStreamAndEndsAtTheLimitWithoutASignal) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit{.rlim_cur = 10'000, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    {
        // The limit is at the end of a line, which would look whole.
        OUTPUT_STREAM stream("out");
        const std::string line = std::string(99, 'a') + '\n';
        for (int i = 0; i < 101; ++i) EXPECT_TRUE(stream << line << std::flush);
        EXPECT_FALSE(stream << std::string(4096, 'b') << std::flush);
    }
    EXPECT_EQ(fs::file_size("out"), 9'999U);
    const int file = open_output_file("out", OUTPUT::APPENDED);
    EXPECT_GT(file, STDERR_FILENO);
    EXPECT_FALSE(write_output(file, "bc"));
    EXPECT_EQ(errno, EFBIG);
    close_output_file(file);
    setrlimit(RLIMIT_FSIZE, &before);
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_TRUE(content_of("out").ends_with("aab"));
}

}  // namespace
