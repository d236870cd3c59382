#include "markup/MarkupTool.h"

namespace pixmora {

std::optional<MarkupTool> markupToolFromRaw(int raw)
{
    if (raw < int(MarkupTool::select) || raw > int(MarkupTool::text))
        return std::nullopt;
    return MarkupTool(raw);
}

std::optional<Annotation::Kind> annotationKind(MarkupTool tool)
{
    using Kind = Annotation::Kind;
    switch (tool) {
    case MarkupTool::select: return std::nullopt;
    case MarkupTool::arrow: return Kind::arrow;
    case MarkupTool::rectangle: return Kind::rectangle;
    case MarkupTool::oval: return Kind::oval;
    case MarkupTool::line: return Kind::line;
    case MarkupTool::pen: return Kind::freehand;
    case MarkupTool::highlighter: return Kind::highlight;
    case MarkupTool::text: return Kind::text;
    }
    return std::nullopt;
}

} // namespace pixmora
