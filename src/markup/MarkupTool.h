#pragma once

#include "markup/Annotation.h"

#include <array>
#include <optional>

namespace pixmora {

// The markup editor's tools; the raw values are the tool selector's segments.
enum class MarkupTool : int {
    select = 0,
    arrow = 1,
    rectangle = 2,
    oval = 3,
    line = 4,
    pen = 5,
    highlighter = 6,
    text = 7,
};

inline constexpr std::array<MarkupTool, 8> allMarkupTools = {
    MarkupTool::select, MarkupTool::arrow, MarkupTool::rectangle, MarkupTool::oval,
    MarkupTool::line, MarkupTool::pen, MarkupTool::highlighter, MarkupTool::text,
};

// Nothing for a value that names no tool.
std::optional<MarkupTool> markupToolFromRaw(int raw);

// The kind of annotation the tool draws; nothing for select, which only picks and moves.
std::optional<Annotation::Kind> annotationKind(MarkupTool tool);

} // namespace pixmora
