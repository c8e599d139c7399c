#include "tests/process/child_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string content_of(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::string how(int status) {
    return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                               : "exit " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

bool ENDING::has_call_site(const std::string& text) const {
    const auto report = files.find("mem_tbb_fileline.vii.log");
    return report != files.end() && report->second.find(text) != std::string::npos &&
           report->second.find("Time spent dumping") != std::string::npos;
}

void ENDING::expect_reports_of(const ENDING& model) const {
    for (const auto& [name, text] : model.files) {
        const auto report = files.find(name);
        ASSERT_TRUE(report != files.end()) << name << how << error;
        EXPECT_TRUE(report->second.ends_with('\n')) << name << error;
    }
    EXPECT_TRUE(has_call_site("")) << error;
}

ENDING run(const std::string& command, const std::string& environment) {
    std::string name = (fs::temp_directory_path() / "ktl_mem_XXXXXX").string();
    const fs::path folder = mkdtemp(name.data());
    const std::string script = "cd " + name +
                               " && mkdir work && cd work && ulimit -c 0 && PATH=" BUILT
                               ":$PATH && exec >../stdout 2>../stderr env " +
                               environment + " " + command;
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ENDING ending{how(status), content_of(folder / "stdout"), content_of(folder / "stderr"), {}};
    for (const auto& file : fs::directory_iterator(folder / "work"))
        ending.files[file.path().filename().string()] = content_of(file.path());
    fs::remove_all(folder);
    return ending;
}

ENDING expect(const CASE& expected) {
    SCOPED_TRACE(expected.environment + " " + expected.command);
    ENDING ending = run(expected.command, expected.environment);
    EXPECT_EQ(ending.how, expected.how);
    EXPECT_THAT(ending.output, testing::MatchesRegex(expected.output));
    EXPECT_THAT(ending.error, testing::MatchesRegex(expected.error));
    return ending;
}
