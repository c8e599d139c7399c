// The standard streams for a process that is about to end.
#pragma once

#include <cstdio>

// The descriptor behind the stream; negative when it is closed.
int _fileno(std::FILE* stream);

// Flushes the stream. While another thread holds it, perhaps for ever because nobody reads the other end of
// its pipe, this waits a tenth of a second in all and then leaves it alone. False when it did.
bool flush_without_hanging(std::FILE* stream);

// Writes the text and flushes; under the same rule as above the text then goes to the descriptor directly.
void write_without_hanging(std::FILE* stream, const char* text);
