// grammar.h - the words of the graph language. One table: the parser, the checks
// and the help all read it.
#pragma once

#include <span>
#include <string>

enum class MemberType {
    flag,  // the bare word
    integer,  // whole number
    real,  // number
    fraction,  // N or N/D
    size,  // WIDTHxHEIGHT
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

enum class NodeRole { source, filter, sink };

struct NodeKind {
    const char* name;
    NodeRole role;
    std::span<const Member> members;
    const char* help;
};

// Every kind of node, in the order of the help.
std::span<const NodeKind> nodeKinds();
const NodeKind* findNodeKind(const std::string& name);  // null: none
int findMember(const NodeKind& kind, const std::string& name);  // index; -1: none

// The name nearest to a mistyped one; "" when none is near.
std::string nearestNodeKind(const std::string& name);
std::string nearestMember(const NodeKind& kind, const std::string& name);

// "movie FILE [loop] [rate=X] [every]"
std::string usageOf(const NodeKind& kind);
// All kinds with all members.
std::string grammarHelp();

// Pixel packings by name ("CbYCrY"); 0 and "?" for none.
int packingByName(const std::string& name);
const char* packingName(int packing);
std::string packingNames();  // all, separated by blanks
