// graphError.h - what is wrong with a graph, and where in its text.
#pragma once

#include <exception>
#include <string>

#include "apps/kiv/graph/grammar.h"

// A part of the graph's text, in bytes.
struct Span {
    size_t begin = 0, end = 0;
};

// what() is the message, after the node's place. describe() gives two lines: the line of
// the text with its number and column, then a mark below the place in question and the
// message.
class GraphError : public std::exception {
public:
    GraphError(const NodeText& node, const std::string& message);  // marks the whole node
    GraphError(const NodeText& node, Span where, const std::string& message);
    GraphError(Span where, const std::string& message);  // of no node

    const char* what() const noexcept override { return message_.c_str(); }
    // `source` is the file that the text came from, or "graph"; `indent` columns stand
    // before the first line already.
    std::string describe(const std::string& graph, const std::string& source, int indent) const;

private:
    std::string message_;
    Span where_;
};
