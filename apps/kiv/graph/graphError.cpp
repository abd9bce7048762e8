// graphError.cpp - see graphError.h.
#include "apps/kiv/graph/graphError.h"

#include <algorithm>

#include "apps/kiv/graph/graphText.h"
#include "apps/kiv/support/text.h"

namespace {

constexpr size_t shownColumns = 72;  // of a long line

// A character of several bytes is one column.
size_t columns(const std::string& bytes)
{
    return size_t(std::ranges::count_if(bytes, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// A message may quote what was written, of any length and with line breaks in quotes.
std::string oneLine(const std::string& message)
{
    constexpr size_t longest = 400;
    return printable(message.size() <= longest ? message : message.substr(0, longest) + "...");
}

}  // namespace

GraphError::GraphError(const NodeText& node, const std::string& message) : GraphError(node, node.where, message) { }

GraphError::GraphError(const NodeText& node, Span where, const std::string& message)
    : message_(oneLine(node.place() + ": " + message)), where_(where)
{
}

GraphError::GraphError(Span where, const std::string& message) : message_(oneLine(message)), where_(where) { }

std::string GraphError::describe(const std::string& graph, const std::string& source, int indent) const
{
    const size_t at = std::min(where_.begin, graph.size());
    const size_t newLine = at == 0 ? std::string::npos : graph.rfind('\n', at - 1);
    const size_t lineBegin = newLine == std::string::npos ? 0 : newLine + 1;
    const size_t lineEnd = std::min(graph.find('\n', at), graph.size());
    const auto number = 1 + std::count(graph.begin(), graph.begin() + long(lineBegin), '\n');
    const size_t column = 1 + columns(graph.substr(lineBegin, at - lineBegin));

    // A long line is shown from somewhat before the place.
    size_t from = lineBegin;
    if (lineEnd - lineBegin > shownColumns && at - lineBegin > shownColumns / 2)
        from = at - shownColumns / 2;
    while (from > lineBegin && (static_cast<unsigned char>(graph[from]) & 0xC0) == 0x80)
        --from;
    size_t to = std::min(lineEnd, from + shownColumns);
    while (to < lineEnd && (static_cast<unsigned char>(graph[to]) & 0xC0) == 0x80)
        ++to;
    const char* before = from > lineBegin ? "..." : "";

    const std::string head = text("%s:%zu:%zu: %s", source.c_str(), size_t(number), column, before);
    const size_t pad = size_t(indent) + columns(head) + columns(graph.substr(from, at - from));
    const size_t marked = columns(graph.substr(at, std::min(where_.end, to) - std::min(at, where_.end)));
    return head + printable(graph.substr(from, to - from)) + (to < lineEnd ? "..." : "") + "\n" + std::string(pad, ' ')
        + "^" + std::string(marked > 1 ? marked - 1 : 0, '~') + " " + message_;
}
