// text.h - strings made the printf way, and the program's own lines.
#pragma once

#include <string>

// The formatted text.
std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));

// One line to standard error, after "kiv: ".
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Words to standard output. False, after a line, when they cannot be written.
bool printOut(const std::string& words);

// The words with blanks for line breaks and whatever else would move a terminal's cursor.
std::string printable(std::string words);

// What the last failed call of a service on this thread said, detail first.
std::string serviceError();
