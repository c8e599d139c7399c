// Files that the library writes into folders which it does not choose: as a rule the current one, where
// others may have put things beforehand, under a process that may have closed its standard streams.
#pragma once

#include <ostream>
#include <streambuf>
#include <string_view>

// Opens a new file, or one that is there already: a regular file of this user with no second name. A symbolic
// link, a pipe, a device and another user's file are refused, and nothing is waited for. The descriptor is 3
// or higher, so that nobody takes it for a standard stream, and does not go on to started programs. -1 with
// errno when there is none.
enum class OUTPUT { EMPTIED, APPENDED };
int open_output_file(const char* path, OUTPUT mode);
void close_output_file(int file);

// The same file under such a descriptor; the one that was given is closed when it is lower.
int above_standard_streams(int file);

// Writes all of it; false when that fails, also at the limit on the size of files, whose signal, which would
// end the process, is held back.
bool write_output(int file, std::string_view text);

// A stream into such a file. One that cannot be opened leaves it failed. A file that cannot be written to its
// end loses the end of its last line, too, so that nobody takes it for whole. Reports flush after every line:
// what fits into the buffer waits for the next piece or the end all the same. Allocates no buffer.
class OUTPUT_STREAM : public std::ostream {
  public:
    explicit OUTPUT_STREAM(const char* path) : std::ostream(nullptr), buffer(path) {
        rdbuf(&buffer);
        if (!buffer.is_open()) setstate(failbit);
    }

  private:
    class BUFFER : public std::streambuf {
      public:
        explicit BUFFER(const char* path);
        ~BUFFER() override;
        BUFFER(const BUFFER&) = delete;
        BUFFER& operator=(const BUFFER&) = delete;
        bool is_open() const { return file >= 0; }

      protected:
        int_type overflow(int_type next) override;
        std::streamsize xsputn(const char* piece, std::streamsize size) override;
        int sync() override { return is_cut ? -1 : 0; }

      private:
        bool write_out();
        bool write_behind(std::string_view piece);
        void cut_end_of_line(std::string_view failed) const;

        const int file;
        bool is_cut = false;
        std::size_t written = 0;
        char last = 0;  // of what was written
        char text[4096];
    };

    BUFFER buffer;
};
