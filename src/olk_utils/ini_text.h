// What reader and writer of INI-style files share. Both work on the whole file in memory, as a text that ends
// at the first zero byte.
#pragma once

#include <stddef.h>
#include <sys/types.h>

// Dropped wherever they stand in a value that is read.
inline constexpr char kDroppedCharacters[] = "= ";
bool is_dropped(char character);

// A buffer of zeros that holds the whole file and so much more; null when there is no memory for it. The
// caller frees it.
char* allocate_for(off_t file_size, size_t slack);

// Reads until the buffer is full or the file ends. False when reading fails; length then still says how much
// came in.
bool read_up_to(int descriptor, char* buffer, size_t capacity, size_t& length);

// First "[section]" of the text, wherever it stands; null if there is none.
const char* find_header(const char* text, const char* section);

// First occurrence of the item's name, as a part of any word, in front of the next "["; null if there is
// none. An empty name is found at once.
const char* find_item(const char* from, const char* item);

// Where the value that starts here ends. Kept: the look-ahead for a carriage return reaches as far beyond the
// value as the section's header lies from the start of the file.
const char* value_end(const char* value, size_t look_ahead, const char* file_end);
