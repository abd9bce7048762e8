// grammar.h - the words of the graph language. One table: the parser, the checks,
// the help, the inspector and the manual pages all read it.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "apps/kiv/graph/packing.h"

class GraphPart;
struct NodeText;

enum class MemberType {
    flag,  // the bare word
    integer,  // whole number, with or without its unit
    real,  // number, with or without its unit
    rate,  // N, N/D or N.N, with or without "fps"
    size,  // WIDTHxHEIGHT, or a name as 720p
    seconds,  // 10, 2.5, 90s, 1m30s
    packing,  // name of a pixel packing
    file,  // a file that must exist
    path,  // a file to be written
    url,  // tcp://host:port or unix:path
    word,  // any text
    suffix,  // any text, written behind the node's name and a colon
};

// What a node takes besides its name. A positional member is required and stands
// without its name; all others are written name=value, or as the bare name of a flag.
struct Member {
    const char* name;
    MemberType type;
    bool positional;
    bool required;
    double low, high;  // bounds of a number, both included
    const char* unit;  // "" for none
    const char* fallback;  // as it would be written; "" for none
    const char* help;
};

constexpr Member flagMember(const char* name, const char* help)
{
    return {name, MemberType::flag, false, false, 0, 0, "", "", help};
}

// A required one that stands without its name.
constexpr Member placeMember(const char* name, MemberType type, const char* help)
{
    return {name, type, true, true, 0, 0, "", "", help};
}

// name=value that may be left out.
constexpr Member valueMember(const char* name, MemberType type, const char* unit, const char* fallback,
                             const char* help)
{
    return {name, type, false, false, 0, 0, unit, fallback, help};
}

constexpr Member numberMember(const char* name, MemberType type, double low, double high, const char* unit,
                              const char* fallback, const char* help)
{
    return {name, type, false, false, low, high, unit, fallback, help};
}

enum class NodeRole { source, filter, sink };

// One kind of node. A new kind is one such record beside its part, and one line in
// nodeKinds.cpp.
struct NodeKind {
    const char* name;
    NodeRole role;
    std::span<const Member> members;
    FormatSet (*takes)();  // all that it can take
    FormatSet (*gives)();  // all that it can give
    // What this one takes, with the values that it has; null: as `takes`.
    FormatSet (*wants)(const NodeText&);
    std::unique_ptr<GraphPart> (*make)(const NodeText&);
    const char* help;
    const char* whenDropping;  // what to change when it drops frames; "" when it never does
    std::span<const int> errors;  // ids of the library that it may report
    const char* example;  // a whole graph
};

// For NodeKind::make.
template <class Part> std::unique_ptr<GraphPart> makePartOf(const NodeText& node)
{
    return std::make_unique<Part>(node);
}

// Every kind of node, in the order of the help.
std::span<const NodeKind* const> nodeKinds();
const NodeKind* findNodeKind(const std::string& name);  // null: none
int findMember(const NodeKind& kind, const std::string& name);  // index; -1: none
FormatSet wantsOf(const NodeText& node);

const char* roleName(NodeRole role);  // "source"
const char* typeName(MemberType type);  // "whole number"

// "movie, recv or video": the kinds of that role.
std::string kindsOf(NodeRole role);
// The name nearest to a mistyped one; "" when none is near.
std::string nearestNodeKind(const std::string& name);
std::string nearestMember(const NodeKind& kind, const std::string& name);

// "movie FILE [loop] [rate=X] [every]"
std::string usageOf(const NodeKind& kind);
std::string usageOf(const Member& member);
// "0 to 100 %; default 75"; "" for nothing
std::string boundsOf(const Member& member);
// All kinds with all members.
std::string grammarHelp();

// The rules by which nodes make a graph, one "name := form" a line.
std::span<const char* const> grammarRules();
