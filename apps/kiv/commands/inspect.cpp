// inspect.cpp - see inspect.h.
#include "apps/kiv/commands/inspect.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/graph/run.h"
#include "apps/kiv/support/colour.h"
#include "apps/kiv/support/text.h"
#include "core/kivError.h"

namespace {

using Json = nlohmann::ordered_json;

// The text of an id without what makes a fatal one end the process.
std::string errorText(int id)
{
    std::string words = noErrorMsg;
    for (int i = 0; i < numKivErrors; ++i)
        if (kivErrors[i].errorID == id)
            words = kivErrors[i].errorString;
    while (words.ends_with('\n'))
        words.pop_back();
    return words;
}

std::vector<std::string> namesThat(bool (*fits)(const NodeKind& other, const NodeKind& kind), const NodeKind& kind)
{
    std::vector<std::string> names;
    for (const NodeKind* other : nodeKinds())
        if (fits(*other, kind))
            names.push_back(other->name);
    return names;
}

bool fitsAbove(const NodeKind& other, const NodeKind& kind) { return other.gives().meets(kind.takes()); }
bool fitsBelow(const NodeKind& other, const NodeKind& kind) { return kind.gives().meets(other.takes()); }

std::string joined(const std::vector<std::string>& words)
{
    std::string all;
    for (const std::string& word : words)
        all += (all.empty() ? "" : ", ") + word;
    return all.empty() ? "nothing" : all;
}

Json asJson(const Member& member)
{
    Json json = {{"name", member.name}, {"type", typeName(member.type)}, {"required", member.required}};
    json["positional"] = member.positional;
    json["unit"] = member.unit;
    json["default"] = *member.fallback != '\0' ? Json(member.fallback) : Json();
    if (member.low < member.high)
        json["range"] = {member.low, member.high};
    json["help"] = member.help;
    return json;
}

Json asJson(const NodeKind& kind)
{
    Json json = {{"name", kind.name}, {"role", roleName(kind.role)}, {"help", kind.help}, {"usage", usageOf(kind)}};
    json["members"] = Json::array();
    for (const Member& member : kind.members)
        json["members"].push_back(asJson(member));
    json["takes"] = kind.takes().names();
    json["gives"] = kind.gives().names();
    json["above"] = namesThat(fitsAbove, kind);
    json["below"] = namesThat(fitsBelow, kind);
    json["errors"] = Json::array();
    for (const int id : kind.errors)
        json["errors"].push_back({{"id", id}, {"text", errorText(id)}});
    json["whenDropping"] = kind.whenDropping;
    json["example"] = kind.example;
    return json;
}

std::string asText(const Member& member)
{
    std::string facts = typeName(member.type);
    if (const std::string bounds = boundsOf(member); !bounds.empty())
        facts += "; " + bounds;
    if (member.required)
        facts += "; required";
    return text("  %-20s %s\n  %-20s (%s)\n", usageOf(member).c_str(), member.help, "", facts.c_str());
}

std::string asText(const NodeKind& kind)
{
    std::string out = bold(usageOf(kind)) + "\n  " + kind.help + "\n";
    if (!kind.members.empty())
        out += "\n" + bold("Members") + "\n";
    for (const Member& member : kind.members)
        out += asText(member);
    out += "\n" + bold("Links") + "\n";
    if (kind.role != NodeRole::source)
        out += text("  takes  %s\n  above  %s\n", kind.takes().names().c_str(),
                    joined(namesThat(fitsAbove, kind)).c_str());
    if (kind.role != NodeRole::sink)
        out += text("  gives  %s\n  below  %s\n", kind.gives().names().c_str(),
                    joined(namesThat(fitsBelow, kind)).c_str());
    if (!kind.errors.empty())
        out += "\n" + bold("Errors of its library node") + "\n";
    for (const int id : kind.errors)
        out += text("  %-6d %s\n", id, errorText(id).c_str());
    if (*kind.whenDropping != '\0')
        out += "\n" + bold("When it drops frames") + "\n  " + kind.whenDropping + "\n";
    return out + "\n" + bold("Example") + "\n  kiv run '" + kind.example + "'\n";
}

std::string listAsText()
{
    std::string out;
    for (const NodeRole role : {NodeRole::source, NodeRole::filter, NodeRole::sink}) {
        out += bold(std::string(roleName(role)) + "s") + "\n";
        for (const NodeKind* kind : nodeKinds())
            if (kind->role == role)
                out += text("  %-11s %s\n", kind->name, kind->help);
    }
    return out + "\n'kiv inspect NODE' says more of one.\n";
}

class InspectCommand : public Command {
public:
    void declare(CLI::App& line) override
    {
        line.add_option("NODE", name_, "one kind of node; without it all of them");
        line.add_flag("--json", json_, "as JSON: one object, or an array of all");
    }
    int run() override;

private:
    std::string name_;
    bool json_ = false;
};

int InspectCommand::run()
{
    const NodeKind* kind = findNodeKind(name_);
    if (!name_.empty() && kind == nullptr) {
        const std::string near = nearestNodeKind(name_);
        say("inspect: there is no node '%s'; %s", name_.c_str(),
            near.empty() ? "'kiv inspect' lists them" : ("did you mean '" + near + "'?").c_str());
        return exitUsage;
    }
    if (!json_)
        return printOut(kind != nullptr ? asText(*kind) : listAsText()) ? exitGood : exitFailed;
    Json json = Json::array();
    if (kind != nullptr)
        json = asJson(*kind);
    else
        for (const NodeKind* one : nodeKinds())
            json.push_back(asJson(*one));
    return printOut(json.dump(2) + "\n") ? exitGood : exitFailed;
}

constexpr const char* examples[] = {
    "kiv inspect",
    "kiv inspect jpegenc",
    "kiv inspect --json",
};

}  // namespace

const CommandKind inspectCommand = {
    .name = "inspect",
    .help = "list the nodes, or describe one: members, formats, errors, example",
    .notes = "",
    .examples = examples,
    .make = makeCommand<InspectCommand>,
};
