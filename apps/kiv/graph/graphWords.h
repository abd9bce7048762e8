// graphWords.h - the words and marks of a graph's text.
#pragma once

#include <string>
#include <vector>

#include "apps/kiv/graph/graphError.h"

// A word, or one of the marks ! ( ) , ; in place of it.
struct GraphWord {
    char mark = '\0';
    std::string text;  // of a word, without quotes
    bool quoted = false;
    Span where;
};

// Marks may touch words; inside a word they are letters. `(` begins branches only behind
// `!`, and `)` ends them only where the word itself opens none. Throws GraphError for a
// quote that is not closed.
std::vector<GraphWord> splitGraph(const std::string& graph);
