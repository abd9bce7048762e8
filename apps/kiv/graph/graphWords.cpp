// graphWords.cpp - see graphWords.h.
#include "apps/kiv/graph/graphWords.h"

#include <algorithm>

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

GraphWord markAt(char mark, size_t at) { return {mark, "", false, {at, at + 1}}; }

// One word from `at` on, with what touches it; a quote may open anywhere in it.
GraphWord readWord(const std::string& graph, size_t at)
{
    GraphWord word;
    word.where.begin = at;
    char quote = '\0';
    size_t opened = at;
    for (; at < graph.size() && (quote != '\0' || !isBlank(graph[at])); ++at) {
        const char c = graph[at];
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
        throw GraphError(Span{opened, at}, "a quote is opened and never closed");
    return word;
}

// True when the word ends in a mark, which then is no part of it.
bool endsInMark(const GraphWord& word)
{
    if (word.text.empty())
        return false;
    const char last = word.text.back();
    if (last == ')')
        return std::ranges::count(word.text, ')') > std::ranges::count(word.text, '(');
    return last == ',' || last == ';' || last == '!';
}

// Takes the marks off the end of a word. The last byte of a text that ends in a quote is no mark.
std::vector<GraphWord> takeMarks(const std::string& graph, GraphWord* word)
{
    std::vector<GraphWord> marks;
    while (endsInMark(*word) && graph[word->where.end - 1] == word->text.back()) {
        marks.push_back(markAt(word->text.back(), --word->where.end));
        word->text.pop_back();
    }
    std::ranges::reverse(marks);
    return marks;
}

}  // namespace

std::vector<GraphWord> splitGraph(const std::string& graph)
{
    std::vector<GraphWord> words;
    for (size_t at = 0; at < graph.size();) {
        const bool afterBar = !words.empty() && words.back().mark == '!';
        if (isBlank(graph[at])) {
            ++at;
        } else if (graph[at] == '#') {
            at = std::min(graph.find('\n', at), graph.size());
        } else if (graph[at] == '!' || graph[at] == ',' || graph[at] == ';' || graph[at] == ')'
                   || (graph[at] == '(' && (afterBar || at + 1 == graph.size() || isBlank(graph[at + 1])))) {
            words.push_back(markAt(graph[at], at));
            ++at;
        } else {
            GraphWord word = readWord(graph, at);
            at = word.where.end;
            const std::vector<GraphWord> marks = takeMarks(graph, &word);
            if (word.quoted || !word.text.empty())
                words.push_back(word);
            words.insert(words.end(), marks.begin(), marks.end());
        }
    }
    return words;
}
