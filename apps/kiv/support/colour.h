// colour.h - emphasis for people: only on a terminal, and not where NO_COLOR is set.
#pragma once

#include <string>

std::string bold(const std::string& words);  // on standard output
std::string warning(const std::string& words);  // on standard error
