// graphPart.cpp - see graphPart.h.
#include "apps/kiv/graphPart.h"

#include <cstring>

#include "apps/kiv/checkPart.h"
#include "apps/kiv/filterParts.h"
#include "apps/kiv/sinkParts.h"
#include "apps/kiv/sourceParts.h"
#include "apps/kiv/text.h"
#include "apps/kiv/videoParts.h"

std::string GraphPart::place() const { return text("node %d '%s'", text_.number, text_.kind->name); }

std::unique_ptr<GraphPart> makePart(const NodeText& nodeText)
{
    const std::string kind = nodeText.kind->name;
    if (kind == "movie")
        return std::make_unique<MoviePart>(nodeText);
    if (kind == "recv")
        return std::make_unique<RecvPart>(nodeText);
    if (kind == "jpegdec")
        return std::make_unique<DecoderPart>(nodeText);
    if (kind == "jpegenc")
        return std::make_unique<EncoderPart>(nodeText);
    if (kind == "convert")
        return std::make_unique<ConvertPart>(nodeText);
    if (kind == "file")
        return std::make_unique<FilePart>(nodeText);
    if (kind == "send")
        return std::make_unique<SendPart>(nodeText);
    if (kind == "video")
        return std::make_unique<VideoPart>(nodeText);
    if (kind == "videoout")
        return std::make_unique<VideoOutPart>(nodeText);
    if (kind == "check")
        return std::make_unique<CheckPart>(nodeText);
    return std::make_unique<NullPart>(nodeText);
}

void needPictures(const NodeText& node, const PictureFormat& in)
{
    if (in.jpeg)
        throw GraphError(node, "takes pictures, and JPEG comes in; put jpegdec before it");
}
