// grammar.cpp - see grammar.h.
#include "apps/kiv/graph/grammar.h"

#include <algorithm>
#include <vector>

#include "apps/kiv/graph/graphText.h"
#include "apps/kiv/support/text.h"

namespace {

constexpr const char* rules[] = {
    "graph  :=  chain { ';' chain } [ ';' ]",
    "chain  :=  node { '!' node } [ '!' '(' chain { ',' chain } ')' ]",
    "node   :=  [ NAME '=' ] KIND [ ':' WORD ] { member }",
    "member :=  VALUE  |  FLAG  |  MEMBER '=' VALUE",
};

// Edits (insert, delete, replace, swap of neighbours) that turn one word into the other.
int distance(const std::string& a, const std::string& b)
{
    std::vector<std::vector<int>> d(a.size() + 1, std::vector<int>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i)
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                d[i][j] = int(i + j);
                continue;
            }
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[a.size()][b.size()];
}

constexpr size_t longestWord = 64;  // a longer one is no slip of the pen

template <class Names> std::string nearest(const Names& names, const std::string& name)
{
    std::string best;
    if (name.size() > longestWord)
        return best;
    int bestDistance = int(name.size()) / 3 + 2;  // this far is no longer near
    for (const std::string& known : names) {
        int away = known.starts_with(name) && name.size() > 2 ? 1 : distance(name, known);
        if (away < bestDistance) {
            best = known;
            bestDistance = away;
        }
    }
    return best;
}

const char* valueWord(MemberType type)
{
    switch (type) {
    case MemberType::integer:
        return "N";
    case MemberType::real:
        return "X";
    case MemberType::rate:
        return "RATE";
    case MemberType::size:
        return "WxH";
    case MemberType::seconds:
        return "TIME";
    case MemberType::packing:
        return "NAME";
    case MemberType::file:
    case MemberType::path:
        return "FILE";
    default:
        return "TEXT";
    }
}

std::string helpOf(const Member& member)
{
    const std::string bounds = boundsOf(member);
    const std::string line = text("      %-18s %s", usageOf(member).c_str(), member.help);
    return line + (bounds.empty() ? "" : " (" + bounds + ")") + "\n";
}

}  // namespace

std::span<const char* const> grammarRules() { return rules; }

const NodeKind* findNodeKind(const std::string& name)
{
    for (const NodeKind* kind : nodeKinds())
        if (kind->name == name)
            return kind;
    return nullptr;
}

int findMember(const NodeKind& kind, const std::string& name)
{
    for (size_t i = 0; i < kind.members.size(); ++i)
        if (kind.members[i].name == name)
            return int(i);
    return -1;
}

FormatSet wantsOf(const NodeText& node)
{
    return node.kind->wants != nullptr ? node.kind->wants(node) : node.kind->takes();
}

const char* roleName(NodeRole role)
{
    return role == NodeRole::source ? "source" : role == NodeRole::filter ? "filter" : "sink";
}

const char* typeName(MemberType type)
{
    switch (type) {
    case MemberType::flag:
        return "flag";
    case MemberType::integer:
        return "whole number";
    case MemberType::real:
        return "number";
    case MemberType::rate:
        return "rate, as 30, 29.97 or 30000/1001";
    case MemberType::size:
        return "size, as 1280x720 or 720p";
    case MemberType::seconds:
        return "time, as 10, 2.5s or 1m30s";
    case MemberType::packing:
        return "packing, as CbYCrY or RGB";
    case MemberType::file:
        return "file that exists";
    case MemberType::path:
        return "file to be written";
    case MemberType::url:
        return "tcp://host:port or unix:path";
    case MemberType::word:
        return "text";
    case MemberType::suffix:
        return "text behind the name and a colon";
    }
    return "";
}

std::string kindsOf(NodeRole role)
{
    std::vector<const char*> names;
    for (const NodeKind* kind : nodeKinds())
        if (kind->role == role)
            names.push_back(kind->name);
    std::string all;
    for (size_t i = 0; i < names.size(); ++i)
        all += (i == 0 ? "" : i + 1 < names.size() ? ", " : " or ") + std::string(names[i]);
    return all;
}

std::string nearestNodeKind(const std::string& name)
{
    std::vector<std::string> names;
    for (const NodeKind* kind : nodeKinds())
        names.push_back(kind->name);
    return nearest(names, name);
}

std::string nearestMember(const NodeKind& kind, const std::string& name)
{
    std::vector<std::string> names;
    for (const Member& member : kind.members)
        names.push_back(member.name);
    return nearest(names, name);
}

std::string usageOf(const Member& member)
{
    if (member.type == MemberType::suffix)
        return text("[:%s]", member.name);
    std::string word = member.name;
    if (!member.positional && member.type != MemberType::flag)
        word += std::string("=") + valueWord(member.type);
    return member.required ? word : "[" + word + "]";
}

std::string usageOf(const NodeKind& kind)
{
    std::string usage = kind.name;
    for (const Member& member : kind.members)
        usage += (member.type == MemberType::suffix ? "" : " ") + usageOf(member);
    return usage;
}

std::string boundsOf(const Member& member)
{
    std::string bounds;
    if (member.low < member.high)
        bounds = text("%.12g to %.12g", member.low, member.high);
    if (*member.unit != '\0')
        bounds += (bounds.empty() ? "" : " ") + std::string(member.unit);
    if (*member.fallback != '\0')
        bounds += (bounds.empty() ? "" : "; ") + std::string("default ") + member.fallback;
    return bounds;
}

std::string grammarHelp()
{
    std::string help;
    for (NodeRole role : {NodeRole::source, NodeRole::filter, NodeRole::sink}) {
        help += role == NodeRole::source ? "Sources (first in a line):\n"
            : role == NodeRole::filter   ? "\nFilters (between):\n"
                                         : "\nSinks (last in a line or branch):\n";
        for (const NodeKind* kind : nodeKinds()) {
            if (kind->role != role)
                continue;
            help += text("  %s\n      %s\n", usageOf(*kind).c_str(), kind->help);
            for (const Member& member : kind->members)
                help += helpOf(member);
        }
    }
    return help + "\nPackings: " + packingNames() + "\n";
}
