// graphText.cpp - see graphText.h.
#include "apps/kiv/graph/graphText.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "apps/kiv/graph/graphWords.h"
#include "apps/kiv/graph/values.h"
#include "apps/kiv/support/text.h"

namespace {

constexpr size_t maxNodes = 256;  // each may have a descriptor, and select() takes 1024

// Checks one value and keeps it; errors stand at the value.
void storeValue(NodeText* node, int index, const std::string& written, Span where)
{
    const Member& member = node->kind->members[size_t(index)];
    Value& value = node->values[size_t(index)];
    if (value.given)
        throw GraphError(*node, where, text("'%s' is given twice", member.name));
    value.given = true;
    value.text = written;
    value.where = where;
    const std::string wrong = readValue(member, &value);
    if (!wrong.empty())
        throw GraphError(*node, where, text("%s '%s' %s", member.name, written.c_str(), wrong.c_str()));
}

int nextPositional(const NodeText& node)
{
    for (size_t i = 0; i < node.values.size(); ++i)
        if (node.kind->members[i].positional && !node.values[i].given)
            return int(i);
    return -1;
}

// For a word that has swallowed a mark; else "".
std::string blanksAround(const std::string& word)
{
    const size_t mark = word.find_first_of("!(),;");
    return mark == std::string::npos ? "" : text("put blanks around '%c'", word[mark]);
}

std::string unknownMember(const NodeText& node, const std::string& name)
{
    const std::string near = nearestMember(*node.kind, name);
    const std::string message = text("does not know '%s'", name.c_str());
    if (!near.empty())
        return message + "; did you mean '" + near + "'?";
    if (findNodeKind(name) != nullptr)
        return message + "; '!' stands between two nodes";
    if (const std::string blanks = blanksAround(name); !blanks.empty())
        return message + "; " + blanks;
    return message + "; it is written: " + usageOf(*node.kind);
}

// What to write in place of a kind that there is not.
std::string insteadOf(const std::string& kind)
{
    const std::string near = nearestNodeKind(kind);
    if (const std::string blanks = blanksAround(kind); !blanks.empty())
        return blanks;
    return near.empty() ? "'kiv inspect' lists them" : "did you mean '" + near + "'?";
}

void readMember(NodeText* node, const GraphWord& word)
{
    auto fail = [&](const std::string& message) { throw GraphError(*node, word.where, message); };
    const size_t equals = word.text.find('=');
    const std::string name = word.text.substr(0, equals);
    const int index = findMember(*node->kind, name);
    const MemberType type = index >= 0 ? node->kind->members[size_t(index)].type : MemberType::word;
    const bool named = index >= 0 && !node->kind->members[size_t(index)].positional && type != MemberType::suffix;
    const bool isFlag = named && type == MemberType::flag;

    if (named && isFlag && equals != std::string::npos)
        fail(text("'%s' takes no value", name.c_str()));
    if (named && !isFlag && equals == std::string::npos)
        fail(text("'%s' needs a value: %s=...", name.c_str(), name.c_str()));
    if (named)
        return storeValue(node, index, isFlag ? name : word.text.substr(equals + 1), word.where);
    if (const int place = nextPositional(*node); place >= 0)
        return storeValue(node, place, word.text, word.where);
    fail(unknownMember(*node, name));
}

void fillDefaults(NodeText* node)
{
    for (size_t i = 0; i < node->values.size(); ++i) {
        const Member& member = node->kind->members[i];
        Value& value = node->values[i];
        if (value.given)
            continue;
        if (member.required)
            throw GraphError(*node, text("needs %s; it is written: %s", member.name, usageOf(*node->kind).c_str()));
        value.text = member.fallback;
        if (!value.text.empty())
            readValue(member, &value);
    }
}

// What stands behind the colon of a node's kind.
void readSuffix(NodeText* node, const std::string& suffix, Span where)
{
    for (size_t i = 0; i < node->kind->members.size(); ++i)
        if (node->kind->members[i].type == MemberType::suffix)
            return storeValue(node, int(i), suffix, where);
    throw GraphError(*node, where, "takes no name behind a colon");
}

bool goodName(const std::string& name)
{
    auto letter = [](char c) { return isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_'; };
    return !name.empty() && isalpha(static_cast<unsigned char>(name[0])) != 0 && std::ranges::all_of(name, letter);
}

bool isFile(const Member& member) { return member.type == MemberType::file || member.type == MemberType::path; }

bool sameFile(const std::string& one, const std::string& other)
{
    std::error_code none;
    return one == other || std::filesystem::equivalent(one, other, none);
}

// A file that one node writes is not another's: opening it would empty what is read or written there.
void checkFiles(const NodeText& node, const NodeText& other)
{
    for (size_t i = 0; i < node.values.size(); ++i) {
        for (size_t k = 0; k < other.values.size(); ++k) {
            const Member &member = node.kind->members[i], &others = other.kind->members[k];
            const bool written = member.type == MemberType::path || others.type == MemberType::path;
            const Value& value = node.values[i];
            if (value.given && other.values[k].given && isFile(member) && isFile(others) && written
                && sameFile(value.text, other.values[k].text))
                throw GraphError(node, value.where,
                                 text("%s '%s' is what %s %s; take another name", member.name, value.text.c_str(),
                                      other.place().c_str(), others.type == MemberType::path ? "writes" : "reads"));
        }
    }
}

// Reads the words of a graph into nodes, from left to right.
class Parser {
public:
    Parser(const std::string& graph) : words_(splitGraph(graph)), end_{graph.size(), graph.size()} { }

    std::vector<NodeText> read()
    {
        do
            readChain(-1);
        while (take(';') && at_ < words_.size());
        if (at_ < words_.size())
            failAtMark();
        return std::move(nodes_);
    }

private:
    bool isMark(char mark) const { return at_ < words_.size() && words_[at_].mark == mark; }
    Span here() const { return at_ < words_.size() ? words_[at_].where : end_; }

    bool take(char mark)
    {
        const bool there = isMark(mark);
        at_ += there;
        return there;
    }

    // The nodes from here on that stand one below the other, the first below `parent`.
    void readChain(int parent)
    {
        for (;;) {
            parent = readNode(parent);
            if (isMark('('))
                failAtMark();
            if (!take('!'))
                break;
            if (nodes_[size_t(parent)].kind->role == NodeRole::sink)
                throw GraphError(nodes_[size_t(parent)], "is a sink; nothing can stand behind it");
            if (isMark('('))
                return readBranches(parent);
        }
        const NodeText& last = nodes_[size_t(parent)];
        if (last.kind->role != NodeRole::sink)
            throw GraphError(last, "a graph ends with a sink: " + kindsOf(NodeRole::sink));
    }

    void readBranches(int parent)
    {
        const Span opened = here();
        ++at_;
        do
            readChain(parent);
        while (take(','));
        if (at_ == words_.size())
            throw GraphError(opened, "branches are opened here and never closed; put ')' behind the last");
        if (!take(')'))
            failAtMark();
        if (at_ < words_.size() && (words_[at_].mark == '\0' || isMark('!')))
            throw GraphError(here(), "nothing can stand behind branches; put it into one of them");
    }

    // What to write where a node is missing.
    std::string whatBelongs(int parent) const
    {
        if (parent < 0)
            return "a graph begins with a source: " + kindsOf(NodeRole::source);
        return text("write one behind the '%c', or take that out", words_[at_ - 1].mark);
    }

    // A mark that has no place here.
    [[noreturn]] void failAtMark()
    {
        const char mark = words_[at_].mark;
        if (mark == ',')
            throw GraphError(here(), "',' stands between branches in ( ); ';' between graphs");
        if (mark == ')')
            throw GraphError(here(), "')' closes nothing; branches begin with '! ('");
        if (mark == '(')
            throw GraphError(here(), "branches begin with '! ('");
        throw GraphError(here(), "';' stands between graphs; close the branches before it with ')'");
    }

    int readNode(int parent)
    {
        if (isMark('('))
            failAtMark();
        if (at_ == words_.size() || words_[at_].mark != '\0')
            throw GraphError(here(), text("node %zu is missing; ", nodes_.size() + 1) + whatBelongs(parent));
        if (nodes_.size() == maxNodes)
            throw GraphError(here(), text("a graph has at most %zu nodes", maxNodes));
        const size_t begin = at_;
        while (at_ < words_.size() && words_[at_].mark == '\0')
            ++at_;

        NodeText node;
        node.number = int(nodes_.size()) + 1;
        node.parent = parent;
        node.where = {words_[begin].where.begin, words_[at_ - 1].where.end};
        readHead(&node, words_[begin]);
        for (size_t i = begin + 1; i < at_; ++i)
            readMember(&node, words_[i]);
        fillDefaults(&node);
        checkPlace(node);
        for (const NodeText& other : nodes_)
            checkFiles(node, other);
        nodes_.push_back(std::move(node));
        return int(nodes_.size()) - 1;
    }

    // "jpegenc", "enc=jpegenc", "video:pattern"
    void readHead(NodeText* node, const GraphWord& word)
    {
        const size_t equals = word.text.find('=');
        const size_t kindAt = equals < word.text.find(':') ? equals + 1 : 0;
        const size_t colon = word.text.find(':', kindAt);
        const std::string kind = word.text.substr(kindAt, colon - kindAt);
        if (kindAt > 0)
            readName(node, word.text.substr(0, equals), word.where);
        node->kind = findNodeKind(kind);
        if (node->kind == nullptr) {
            throw GraphError(
                word.where,
                text("node %d '%s': no such node; %s", node->number, kind.c_str(), insteadOf(kind).c_str()));
        }
        node->values.resize(node->kind->members.size());
        if (colon != std::string::npos)
            readSuffix(node, word.text.substr(colon + 1), word.where);
    }

    void readName(NodeText* node, const std::string& name, Span where)
    {
        if (!goodName(name))
            throw GraphError(where,
                             text("node %d: '%s' is no name; it begins with a letter and has letters, digits, - and _",
                                  node->number, name.c_str()));
        for (const NodeText& other : nodes_)
            if (other.name == name)
                throw GraphError(
                    where,
                    text("node %d: node %d has the name '%s' already", node->number, other.number, name.c_str()));
        node->name = name;
    }

    void checkPlace(const NodeText& node)
    {
        const bool first = node.parent < 0;
        if (first && node.kind->role != NodeRole::source)
            throw GraphError(node, "a graph begins with a source: " + kindsOf(NodeRole::source));
        if (!first && node.kind->role == NodeRole::source)
            throw GraphError(node, "is a source and can only stand first; ';' begins another graph");
    }

    std::vector<GraphWord> words_;
    Span end_;
    size_t at_ = 0;
    std::vector<NodeText> nodes_;
};

}  // namespace

const Value& NodeText::value(const char* member) const
{
    const int index = findMember(*kind, member);
    static const Value none;
    return index >= 0 ? values[size_t(index)] : none;
}

std::string NodeText::title() const { return (name.empty() ? "" : name + "=") + kind->name; }

std::string NodeText::place() const { return text("node %d '%s'", number, title().c_str()); }

std::vector<NodeText> parseGraph(const std::string& graph) { return Parser(graph).read(); }

std::vector<const NodeText*> nodesBelow(const std::vector<NodeText>& nodes, const NodeText& node)
{
    std::vector<const NodeText*> below;
    for (const NodeText& other : nodes)
        if (other.parent == node.number - 1)
            below.push_back(&other);
    return below;
}
