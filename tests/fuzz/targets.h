// What is fed with bytes: readers of what other programs, other users' files and the modules of the tracked
// program say. None may crash, leave its memory or overflow, whatever the bytes are.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace fuzz {

using Bytes = std::span<const std::uint8_t>;

struct Target {
    const char* name;
    void (*take)(Bytes bytes);
    std::vector<std::string> (*seeds)();  // what makes sense; mutations begin here
};

extern const Target frame_programs;  // programs and expressions of call frame information
extern const Target reports;         // all readers of report files
extern const Target lists;           // files of suppressions and of filters
extern const Target names;           // questions and answers about code, and the cache of names
extern const Target link;            // greetings of a tracked program, and the page that it shares
extern const Target requests;        // lines of the control socket
extern const Target region;          // the shared region of the call paths

inline const Target* const all_targets[] = {&frame_programs, &reports,  &lists, &names,
                                            &link,           &requests, &region};

// A file in memory with these bytes; gone with the object.
class MemoryFile {
  public:
    explicit MemoryFile(Bytes bytes);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    int descriptor() const { return descriptor_; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

  private:
    int descriptor_;
};

inline std::string text_of(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Ends the process: the bytes broke a promise.
void require(bool promise, const char* what);

}  // namespace fuzz
