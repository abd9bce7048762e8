// graphText.cpp - see graphText.h.
#include "apps/kiv/graphText.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "apps/kiv/text.h"
#include "platform/limits.h"

namespace {

struct Word {
    std::string text;  // without quotes
    Span where;
    bool quoted = false;
};

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// One word from `at` on; a quote may open anywhere in it.
Word readWord(const std::string& graph, size_t at)
{
    Word word;
    word.where.begin = at;
    char quote = '\0';
    size_t opened = at;
    for (; at < graph.size() && (quote != '\0' || !isBlank(graph[at])); ++at) {
        char c = graph[at];
        if (quote == '\0' && (c == '\'' || c == '"')) {
            quote = c;
            opened = at;
            word.quoted = true;
        } else if (c == quote) {
            quote = '\0';
        } else {
            word.text += c;
        }
    }
    word.where.end = at;
    if (quote != '\0')
        throw GraphError(0, "", {opened, at}, "a quote is opened and never closed");
    return word;
}

std::vector<Word> splitWords(const std::string& graph)
{
    std::vector<Word> words;
    for (size_t at = 0; at < graph.size();) {
        if (isBlank(graph[at])) {
            ++at;
            continue;
        }
        words.push_back(readWord(graph, at));
        at = words.back().where.end;
    }
    return words;
}

bool parseNumber(const std::string& word, double* number)
{
    const char* end = word.data() + word.size();
    auto [stop, error] = std::from_chars(word.data(), end, *number);
    return error == std::errc() && stop == end && std::isfinite(*number);
}

// Two whole numbers above 0 with `mark` between; without the mark the second is `alone`.
bool parsePair(const std::string& word, char mark, int alone, Value* value)
{
    size_t at = word.find(mark);
    if (at == std::string::npos && alone == 0)
        return false;
    value->second = alone;
    bool good = parseNumber(word.substr(0, at), &value->number)
        && (at == std::string::npos || parseNumber(word.substr(at + 1), &value->second));
    auto whole = [](double n) { return n >= 1 && n <= 1e9 && n == std::floor(n); };
    return good && whole(value->number) && whole(value->second);
}

std::string checkSize(Value* value)
{
    if (!parsePair(value->text, 'x', 0, value))
        return "must be WIDTHxHEIGHT, as 1280x720";
    if (value->number > kivLimits()->imageWidth || value->second > kivLimits()->imageHeight)
        return text("is larger than %d x %d", kivLimits()->imageWidth, kivLimits()->imageHeight);
    return "";
}

std::string checkNumber(const Member& member, Value* value)
{
    bool whole = member.type == MemberType::integer;
    if (!parseNumber(value->text, &value->number) || (whole && value->number != std::floor(value->number)))
        return whole ? "must be a whole number" : "must be a number";
    if (value->number < member.low || value->number > member.high)
        return text("must lie between %g and %g", member.low, member.high);
    return "";
}

std::string checkPacking(Value* value)
{
    value->number = packingByName(value->text);
    return value->number != 0 ? "" : "is no packing; there are " + packingNames();
}

std::string checkUrl(const Value& value)
{
    bool known = value.text.starts_with("tcp://") || value.text.starts_with("unix:");
    return known ? "" : "must be tcp://host:port or unix:path";
}

// Reads the text of a value into its numbers; what is wrong with it, or "".
std::string checkValue(const Member& member, Value* value)
{
    switch (member.type) {
    case MemberType::flag:
        return "";
    case MemberType::integer:
    case MemberType::real:
        return checkNumber(member, value);
    case MemberType::fraction:
        return parsePair(value->text, '/', 1, value) ? "" : "must be N or N/D, as 30000/1001";
    case MemberType::size:
        return checkSize(value);
    case MemberType::packing:
        return checkPacking(value);
    case MemberType::file:
        return access(value->text.c_str(), R_OK) == 0 ? "" : text("cannot be read: %s", strerror(errno));
    case MemberType::path:
        return value->text.empty() ? "is empty" : "";
    case MemberType::url:
        return checkUrl(*value);
    case MemberType::word:
    case MemberType::suffix:
        return "";
    }
    return "";
}

// Checks one value and keeps it; errors stand at the value.
void storeValue(NodeText* node, int index, const std::string& written, Span where)
{
    const Member& member = node->kind->members[size_t(index)];
    Value& value = node->values[size_t(index)];
    if (value.given)
        throw GraphError(node->number, node->kind->name, where, text("'%s' is given twice", member.name));
    value.given = true;
    value.text = written;
    value.where = where;
    std::string wrong = checkValue(member, &value);
    if (!wrong.empty())
        throw GraphError(node->number, node->kind->name, where,
                         text("%s '%s' %s", member.name, written.c_str(), wrong.c_str()));
}

int nextPositional(const NodeText& node)
{
    for (size_t i = 0; i < node.values.size(); ++i)
        if (node.kind->members[i].positional && !node.values[i].given)
            return int(i);
    return -1;
}

std::string unknownMember(const NodeText& node, const std::string& name)
{
    std::string near = nearestMember(*node.kind, name);
    std::string message = text("does not know '%s'", name.c_str());
    if (!near.empty())
        return message + "; did you mean '" + near + "'?";
    return message + "; it is written: " + usageOf(*node.kind);
}

void readMember(NodeText* node, const Word& word)
{
    auto fail
        = [&](const std::string& message) { throw GraphError(node->number, node->kind->name, word.where, message); };
    size_t equals = word.quoted && word.text.find('=') == std::string::npos ? std::string::npos : word.text.find('=');
    std::string name = word.text.substr(0, equals);
    int index = findMember(*node->kind, name);
    bool named = index >= 0 && !node->kind->members[size_t(index)].positional
        && node->kind->members[size_t(index)].type != MemberType::suffix;
    bool isFlag = named && node->kind->members[size_t(index)].type == MemberType::flag;

    if (named && isFlag && equals != std::string::npos)
        fail(text("'%s' takes no value", name.c_str()));
    if (named && !isFlag && equals == std::string::npos)
        fail(text("'%s' needs a value: %s=...", name.c_str(), name.c_str()));
    if (named)
        return storeValue(node, index, equals == std::string::npos ? name : word.text.substr(equals + 1), word.where);
    if (int place = nextPositional(*node); place >= 0)
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
            checkValue(member, &value);
    }
}

// What stands behind the colon of a node's name.
void readSuffix(NodeText* node, const Word& name, size_t colon)
{
    for (size_t i = 0; i < node->kind->members.size(); ++i)
        if (node->kind->members[i].type == MemberType::suffix)
            return storeValue(node, int(i), name.text.substr(colon + 1), name.where);
    throw GraphError(node->number, node->kind->name, name.where, "takes no name behind a colon");
}

NodeText readNode(const std::vector<Word>& words, size_t begin, size_t end, int number)
{
    const Word& name = words[begin];
    const size_t colon = name.text.find(':');
    NodeText node;
    node.kind = findNodeKind(name.text.substr(0, colon));
    node.number = number;
    node.where = {name.where.begin, words[end - 1].where.end};
    if (node.kind == nullptr) {
        std::string near = nearestNodeKind(name.text);
        throw GraphError(number, name.text, name.where,
                         near.empty() ? "no such node; 'kiv help' lists them"
                                      : "no such node; did you mean '" + near + "'?");
    }
    node.values.resize(node.kind->members.size());
    if (colon != std::string::npos)
        readSuffix(&node, name, colon);
    for (size_t i = begin + 1; i < end; ++i)
        readMember(&node, words[i]);
    fillDefaults(&node);
    return node;
}

void checkOrder(const std::vector<NodeText>& nodes)
{
    for (const NodeText& node : nodes) {
        bool first = node.number == 1, last = size_t(node.number) == nodes.size();
        if (first && node.kind->role != NodeRole::source)
            throw GraphError(node, "a graph begins with a source: movie, recv or video");
        if (!first && node.kind->role == NodeRole::source)
            throw GraphError(node, "is a source and can only stand first");
        if (!last && node.kind->role == NodeRole::sink)
            throw GraphError(node, "is a sink; nothing can stand behind it");
        if (last && node.kind->role != NodeRole::sink)
            throw GraphError(node, "a graph ends with a sink: file, send, videoout, check or null");
    }
}

}  // namespace

const Value& NodeText::value(const char* member) const
{
    int index = findMember(*kind, member);
    static const Value none;
    return index >= 0 ? values[size_t(index)] : none;
}

GraphError::GraphError(const NodeText& node, const std::string& message)
    : GraphError(node.number, node.kind->name, node.where, message)
{
}

GraphError::GraphError(int nodeNumber, const std::string& nodeName, Span where, const std::string& message)
    : where_(where)
{
    message_ = nodeNumber > 0 ? text("node %d '%s': %s", nodeNumber, nodeName.c_str(), message.c_str())
                              : "graph: " + message;
}

std::string GraphError::describe(const std::string& graph) const
{
    std::string marked = graph;
    marked.insert(std::min(where_.end, marked.size()), " <<<");
    marked.insert(std::min(where_.begin, marked.size()), ">>> ");
    for (char& c : marked)
        c = c == '\n' ? ' ' : c;
    return message_ + "\n  in: " + marked;
}

std::vector<NodeText> parseGraph(const std::string& graph)
{
    std::vector<Word> words = splitWords(graph);
    std::vector<NodeText> nodes;
    size_t begin = 0;
    for (size_t i = 0; i <= words.size(); ++i) {
        bool mark = i < words.size() && words[i].text == "!" && !words[i].quoted;
        if (i < words.size() && !mark)
            continue;
        int number = int(nodes.size()) + 1;
        if (begin == i) {
            Span where = mark ? words[i].where : Span{graph.size(), graph.size()};
            throw GraphError(0, "", where, text("node %d is missing", number));
        }
        nodes.push_back(readNode(words, begin, i, number));
        begin = i + 1;
    }
    checkOrder(nodes);
    return nodes;
}

bool parseSeconds(const std::string& word, double* seconds)
{
    static constexpr struct {
        char unit;
        double seconds;
    } units[] = {{'h', 3600}, {'m', 60}, {'s', 1}};
    constexpr double longest = 1e9;  // three decades; more is a slip
    double number;
    if (parseNumber(word, seconds))
        return *seconds > 0 && *seconds <= longest;

    *seconds = 0;
    std::string rest = word;
    for (const auto& [unit, length] : units) {
        size_t at = rest.find(unit);
        if (at == std::string::npos)
            continue;
        if (!parseNumber(rest.substr(0, at), &number) || number < 0)
            return false;
        *seconds += number * length;
        rest = rest.substr(at + 1);
    }
    return rest.empty() && *seconds > 0 && *seconds <= longest;
}

bool parseFrames(const std::string& word, long long* frames)
{
    const auto [end, wrong] = std::from_chars(word.data(), word.data() + word.size(), *frames);
    return wrong == std::errc() && end == word.data() + word.size() && *frames > 0;
}
