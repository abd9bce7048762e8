// graphText.h - a graph as it is written: a forest of nodes with checked values, or one
// clear error.
#pragma once

#include <string>
#include <vector>

#include "apps/kiv/graph/graphError.h"

struct Value {
    bool given = false;  // written in the graph
    std::string text;  // as written, or the default
    double number = 0;  // integer, real, seconds; numerator; width; packing
    double second = 0;  // denominator; height
    Span where;
};

// One node of the text. Values stand in the order of the kind's members.
struct NodeText {
    const NodeKind* kind = nullptr;
    std::string name;  // of this node, before its kind; "" for none
    int number = 0;  // place in the graph, from 1; the index is one less
    int parent = -1;  // index of the node above; -1 for a source
    Span where;
    std::vector<Value> values;

    const Value& value(const char* member) const;
    bool has(const char* member) const { return value(member).given; }
    std::string title() const;  // "jpegenc", or "enc=jpegenc"
    std::string place() const;  // "node 2 'jpegenc'"
};

// Reads "movie a.mov every ! jpegdec ! ( null, file a.y4m )"; grammarRules() says how
// nodes are put together. Quotes '...' and "..." keep blanks together, and keep marks
// from being marks; # begins a comment. Throws GraphError. Checks names, values, the
// order of sources and sinks, and that named files can be read. Parents come before
// their children, in the order of the text.
std::vector<NodeText> parseGraph(const std::string& graph);

// The nodes below one, in the order of the text.
std::vector<const NodeText*> nodesBelow(const std::vector<NodeText>& nodes, const NodeText& node);
