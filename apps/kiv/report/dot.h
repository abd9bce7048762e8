// dot.h - a picture of a graph: nodes, and what runs between them.
#pragma once

#include "apps/kiv/report/statsFeed.h"

// In the language of Graphviz. Once frames have passed, links have their counts.
std::string dotOf(Graph& graph, const StatsFeed* feed);  // null: nothing is counted

// Writes the picture; as SVG, which Graphviz draws, when the path ends in .svg. "" or what
// went wrong; blocks until it is drawn.
std::string writeDot(const std::string& path, const std::string& dot);
