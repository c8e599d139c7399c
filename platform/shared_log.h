// A text file that many processes append to.
#pragma once

#include <string>

// Appends block to the file, and puts head in front when the file is empty. The file's lock is held between
// the two, so that processes that end at the same moment neither lose a block nor write the head twice; after
// a second it goes on without the lock. A file that cannot be
// opened, or is none of this user's own (output_file.h), is left alone, in silence.
void append_to_shared_log(const char* path, const std::string& head, const std::string& block);
