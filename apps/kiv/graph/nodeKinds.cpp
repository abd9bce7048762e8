// nodeKinds.cpp - the table of all kinds of nodes. A kind that is not described here
// stands in the file of its part, and has its line at the end.
#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/nodes/checkPart.h"
#include "apps/kiv/nodes/filterParts.h"
#include "apps/kiv/nodes/glDisplayPart.h"
#include "apps/kiv/nodes/glMoviePart.h"
#include "apps/kiv/nodes/glTransPart.h"
#include "apps/kiv/nodes/sinkParts.h"
#include "apps/kiv/nodes/snapshotPart.h"
#include "apps/kiv/nodes/sourceParts.h"
#include "apps/kiv/nodes/videoParts.h"

namespace {

constexpr Member forSeconds
    = numberMember("seconds", MemberType::seconds, 0, 0, "", "", "end this source after that time");

constexpr Member movieMembers[] = {
    placeMember("FILE", MemberType::file, "the movie: QuickTime, MP4, AVI or Matroska"),
    flagMember("loop", "begin again at the end, for ever"),
    numberMember("rate", MemberType::real, 0.01, 100.0, "x", "1", "speed of playing, 2x is twice as fast"),
    flagMember("every", "each frame exactly once, in order, as fast as the graph takes them"),
    forSeconds,
};
constexpr int movieErrors[] = {kivErrPoolDefaults, kivErrPool, kivErrMovieThread, kivErrMovieIO, kivErrSemaphore};
constexpr NodeKind movieKind = {
    .name = "movie",
    .role = NodeRole::source,
    .members = movieMembers,
    .takes = noFormats,
    .gives = jpegOnly,
    .wants = nullptr,
    .make = makePartOf<MoviePart>,
    .help = "plays a movie file; its frames come out as JPEG",
    .whenDropping = "the graph is slower than the movie: write 'every' behind it to wait instead, or rate=0.5",
    .errors = movieErrors,
    .example = "movie clip.mov ! jpegdec ! null",
};

constexpr Member recvMembers[] = {
    placeMember("URL", MemberType::url, "tcp://host:port or unix:path; tcp://:port means this machine only"),
    {"size", MemberType::size, false, true, 0, 0, "pixels", "", "of the pictures that come"},
    valueMember("packing", MemberType::packing, "", "", "uncompressed pictures come; without it JPEG"),
    flagMember("connect", "call the sender instead of waiting for it; ends when it has gone"),
    flagMember("once", "end when the peer has gone, instead of waiting for the next"),
    flagMember("lossless", "take every frame; a slow graph then holds the sender up"),
    forSeconds,
};
constexpr int networkErrors[] = {kivErrPoolDefaults, kivErrPool, kivErrSemaphore, kivErrNetwork};
constexpr NodeKind recvKind = {
    .name = "recv",
    .role = NodeRole::source,
    .members = recvMembers,
    .takes = noFormats,
    .gives = anyFormats,
    .wants = nullptr,
    .make = makePartOf<RecvPart>,
    .help = "receives what 'send' sends",
    .whenDropping = "the graph is slower than the sender: write 'lossless' behind it, or send smaller pictures",
    .errors = networkErrors,
    .example = "recv tcp://:5000 size=1280x720 ! jpegdec ! null",
};

constexpr Member videoMembers[] = {
    valueMember("jack", MemberType::suffix, "", "", "part of an input's name; 'kiv devices' lists them"),
    valueMember("size", MemberType::size, "pixels", "", "of the pictures; without it what the device has"),
    valueMember("rate", MemberType::rate, "fps", "", "without it what the device has"),
    flagMember("free", "built-in cameras: as fast as the graph takes pictures"),
    valueMember("clip", MemberType::file, "", "", "movie, .y4m or .uyvy file that the built-in clip camera plays"),
    valueMember("faults", MemberType::word, "", "", "fault script of a built-in camera, for tests"),
    forSeconds,
};
constexpr int videoErrors[]
    = {kivErrVideoNode, kivErrVideoPath, kivErrVideoSetup, kivErrVideoRegister, kivErrVideoStart, kivErrVideoNoEvent};
constexpr NodeKind videoKind = {
    .name = "video",
    .role = NodeRole::source,
    .members = videoMembers,
    .takes = noFormats,
    .gives = cameraPictures,
    .wants = nullptr,
    .make = makePartOf<VideoPart>,
    .help = "captures from a camera; 'video:pattern' is the built-in one",
    .whenDropping = "the graph is slower than the camera: ask for a smaller size= or rate=",
    .errors = videoErrors,
    .example = "video:pattern size=640x480 rate=30 ! jpegenc ! file camera.mjpeg",
};

constexpr int converterErrors[]
    = {kivErrICNone, kivErrICSend, kivErrICReceive, kivErrICCreate, kivErrICNoMatch, kivErrICSrcPool, kivErrICDstPool};
constexpr NodeKind jpegdecKind = {
    .name = "jpegdec",
    .role = NodeRole::filter,
    .members = {},
    .takes = jpegOnly,
    .gives = anyPictures,
    .wants = nullptr,
    .make = makePartOf<DecoderPart>,
    .help = "JPEG to pictures, in the packing that the next nodes want",
    .whenDropping = "decoding is slower than the frames come: smaller pictures or fewer, or 'every' behind a movie",
    .errors = converterErrors,
    .example = "movie clip.mov ! jpegdec ! file picture-%03d.png",
};

constexpr Member jpegencMembers[] = {
    numberMember("quality", MemberType::integer, 0, 100, "%", "75", "0 smallest to 100 best"),
    numberMember("bands", MemberType::integer, 0, 16, "", "0",
                 "of each frame, for cores side by side; 0: by its height"),
};
constexpr NodeKind jpegencKind = {
    .name = "jpegenc",
    .role = NodeRole::filter,
    .members = jpegencMembers,
    .takes = anyPictures,
    .gives = jpegOnly,
    .wants = nullptr,
    .make = makePartOf<EncoderPart>,
    .help = "pictures to JPEG",
    .whenDropping
    = "encoding is slower than the frames come: a smaller size= or rate= at the source, or a lower quality=",
    .errors = converterErrors,
    .example = "video:pattern ! jpegenc quality=80 ! send tcp://localhost:5000",
};

constexpr Member convertMembers[] = {
    {"packing", MemberType::packing, false, true, 0, 0, "", "", "what comes out"},
};
constexpr NodeKind convertKind = {
    .name = "convert",
    .role = NodeRole::filter,
    .members = convertMembers,
    .takes = anyPictures,
    .gives = anyPictures,
    .wants = nullptr,
    .make = makePartOf<ConvertPart>,
    .help = "pictures to another packing",
    .whenDropping = "converting is slower than the frames come: a smaller size= or rate= at the source",
    .errors = converterErrors,
    .example = "video:pattern ! convert packing=RGB ! file picture-%03d.png",
};

constexpr Member fileMembers[] = {
    placeMember("PATH", MemberType::path,
                "its end says the format: .y4m .mjpeg, or one file a frame: .jpg .png .ppm, numbered from 1 where %d "
                "or %04d stands, else before the dot"),
    valueMember("rate", MemberType::rate, "fps", "", "written to .y4m; known from a movie, else 30"),
};
constexpr NodeKind fileKind = {
    .name = "file",
    .role = NodeRole::sink,
    .members = fileMembers,
    .takes = anyFormats,
    .gives = noFormats,
    .wants = FilePart::wants,
    .make = makePartOf<FilePart>,
    .help = "writes files",
    .whenDropping = "",
    .errors = {},
    .example = "movie clip.mov every ! jpegdec ! file clip.y4m",
};

constexpr Member sendMembers[] = {
    placeMember("URL", MemberType::url, "tcp://host:port or unix:path of the receiver"),
    flagMember("lossless", "wait for a slow receiver instead of dropping frames"),
    flagMember("listen", "wait for receivers instead of calling one; when one has gone, wait for the next"),
};
constexpr int sendErrors[] = {kivErrNetwork};
constexpr NodeKind sendKind = {
    .name = "send",
    .role = NodeRole::sink,
    .members = sendMembers,
    .takes = anyFormats,
    .gives = noFormats,
    .wants = nullptr,
    .make = makePartOf<SendPart>,
    .help = "sends to a 'recv', here or on another machine",
    .whenDropping
    = "the connection or the receiver is slower than the frames come: lower quality= or rate=, or 'lossless'",
    .errors = sendErrors,
    .example = "movie clip.mov loop ! send tcp://localhost:5000",
};

constexpr Member videooutMembers[] = {
    valueMember("jack", MemberType::suffix, "", "", "part of an output's name; 'kiv devices' lists them"),
    valueMember("record", MemberType::path, "", "", "built-in monitor: .y4m file of what was shown"),
    valueMember("faults", MemberType::word, "", "", "fault script of the built-in monitor, for tests"),
};
constexpr NodeKind videooutKind = {
    .name = "videoout",
    .role = NodeRole::sink,
    .members = videooutMembers,
    .takes = cameraPictures,
    .gives = noFormats,
    .wants = nullptr,
    .make = makePartOf<VideoOutPart>,
    .help = "plays out to a video output; 'videoout:monitor' is the built-in one",
    .whenDropping = "pictures come faster than the output shows them: give the source the output's rate=",
    .errors = videoErrors,
    .example = "video:pattern ! videoout:monitor record=seen.y4m",
};

constexpr Member checkMembers[] = {
    valueMember("keep", MemberType::path, "", "", "a .png or .ppm of one picture in a hundred"),
};
constexpr NodeKind checkKind = {
    .name = "check",
    .role = NodeRole::sink,
    .members = checkMembers,
    .takes = cameraPictures,
    .gives = noFormats,
    .wants = nullptr,
    .make = makePartOf<CheckPart>,
    .help = "reads the number in the built-in camera's picture: is each frame the right one?",
    .whenDropping = "pictures were lost above: the other nodes' drops say where",
    .errors = {},
    .example = "video:pattern ! check",
};

constexpr NodeKind nullKind = {
    .name = "null",
    .role = NodeRole::sink,
    .members = {},
    .takes = anyFormats,
    .gives = noFormats,
    .wants = nullptr,
    .make = makePartOf<NullPart>,
    .help = "takes frames and does nothing with them",
    .whenDropping = "",
    .errors = {},
    .example = "movie clip.mov every ! null",
};

constexpr const NodeKind* kinds[] = {
    &movieKind,    &recvKind,  &videoKind, &jpegdecKind, &jpegencKind, &convertKind,    &fileKind,     &sendKind,
    &videooutKind, &checkKind, &nullKind,  &movieglKind, &displayKind, &pixeltransKind, &snapshotKind,
};

}  // namespace

std::span<const NodeKind* const> nodeKinds() { return kinds; }
