// graphText.h - a graph as it is written: nodes with checked values, or one clear error.
#pragma once

#include <exception>
#include <string>
#include <vector>

#include "apps/kiv/grammar.h"

// A part of the graph's text, in bytes.
struct Span {
    size_t begin = 0, end = 0;
};

struct Value {
    bool given = false;  // written in the graph
    std::string text;  // as written, or the default
    double number = 0;  // integer, real; numerator; width; packing
    double second = 0;  // denominator; height
    Span where;
};

// One node of the text. Values stand in the order of the kind's members.
struct NodeText {
    const NodeKind* kind = nullptr;
    int number = 0;  // place in the graph, from 1
    Span where;
    std::vector<Value> values;

    const Value& value(const char* member) const;
    bool has(const char* member) const { return value(member).given; }
};

// What is wrong with a graph, and where. describe() gives two lines: the message
// after the node's place, and the graph with the part in question marked.
class GraphError : public std::exception {
public:
    GraphError(const NodeText& node, const std::string& message);
    GraphError(int nodeNumber, const std::string& nodeName, Span where, const std::string& message);

    const char* what() const noexcept override { return message_.c_str(); }
    std::string describe(const std::string& graph) const;

private:
    std::string message_;
    Span where_;
};

// Reads "movie a.mov every ! jpegdec ! null". Nodes stand between blanks and "!";
// quotes '...' and "..." keep blanks together. Throws GraphError. Checks names,
// values and the order of sources and sinks, and that named files can be read.
std::vector<NodeText> parseGraph(const std::string& graph);

// "10", "2.5", "90s", "1m30s", "1h": seconds. False for anything else.
bool parseSeconds(const std::string& word, double* seconds);

// "1" and more. False for anything else.
bool parseFrames(const std::string& word, long long* frames);
