// jpegDecoder.cpp - JPEG to uncompressed pictures.
#include <cstring>
#include <new>

#include "platform/support/error.h"
#include "platform/zvic/codec.h"
#include "platform/zvic/jpegBands.h"
#include "platform/zvic/jpegPlanes.h"
#include "platform/zvic/jpegSupport.h"
#include "platform/zvic/jpegTables.h"

namespace kiv {

namespace {

bool decoderMatches(const ImageFormat& src, const ImageFormat& dst)
{
    J_COLOR_SPACE space;
    int bytes = 0;
    return src.jpeg && !dst.jpeg
        && (dst.packing == ZV_IMAGE_PACKING_CbYCrY || jpegColorSpace(dst.packing, &space, &bytes));
}

// All decoding uses the accurate integer transform. RGB packings and LUMINANCE
// come straight from libjpeg with its smooth chroma up-sampling, in both speeds;
// CbYCrY comes from the planes inside the JPEG (jpegPlanes.h), where the speed
// chooses the filter. Anything but one whole picture of the size that is set is
// a failed image: nothing of a damaged one is shown.
//
// A picture with restart markers between its rows of blocks is read in bands, each
// as a JPEG of its own: the picture's head with the band's height, the band's data,
// an end marker. Where rows of chroma are made from their neighbours above and below
// (fewer rows than luma has, and a smooth filter) a picture stays whole, so that no
// sample depends on the cut.
class JpegDecoder final : public ConvertEngine {
public:
    explicit JpegDecoder(const ImageFormat& dst) : dst_(dst), planes_(dst.width)
    {
        frameBytes_ = size_t(imageBytesMax(dst));
        cinfo_.err = jpegErrorsInit(&errors_);
    }

    ~JpegDecoder() override
    {
        if (created_)
            jpeg_destroy_decompress(&cinfo_);
    }

    int setUp();
    int convert(const ConvertJob& job) override;
    bool plan(const ConvertJob& job, int most, BandPlan* plan) override;
    int convertBand(const ConvertJob& job, BandPlan::Band& band) override;
    int join(const ConvertJob&, const BandPlan&) override { return int(frameBytes_); }

private:
    // The longest head that is copied for a band.
    static constexpr size_t headMost = 16 << 10;

    void configure();
    void decode(const ConvertJob& job, int row, int rows);
    void checkHeader(int rows);
    void checkKind();
    void readPixels(uint8_t* out);
    void checkRest();
    j_common_ptr common() { return reinterpret_cast<j_common_ptr>(&cinfo_); }

    static void initSource(j_decompress_ptr) { }
    static void endSource(j_decompress_ptr) { }
    // Goes on with the next piece of a band.
    static boolean sourceEmpty(j_decompress_ptr cinfo)
    {
        JpegDecoder* self = static_cast<JpegDecoder*>(cinfo->client_data);
        if (self->pieces_ == 0)
            jpegFail(self->common(), ZV_ERROR_DATA, "the JPEG ends early");
        self->take(self->piece_[maxPieces - self->pieces_--]);
        return TRUE;
    }
    static void skipSource(j_decompress_ptr cinfo, long bytes)
    {
        if (bytes <= 0)
            return;
        if (size_t(bytes) > cinfo->src->bytes_in_buffer)
            jpegFail(reinterpret_cast<j_common_ptr>(cinfo), ZV_ERROR_DATA, "the JPEG ends early");
        cinfo->src->next_input_byte += bytes;
        cinfo->src->bytes_in_buffer -= size_t(bytes);
    }

    // A band begins with another marker than RST0; what comes in its turn is taken.
    static boolean resync(j_decompress_ptr cinfo, int desired)
    {
        JpegDecoder* self = static_cast<JpegDecoder*>(cinfo->client_data);
        if (cinfo->unread_marker != jpegRst0 + ((desired + self->firstMarker_) & 7))
            return jpeg_resync_to_restart(cinfo, desired);
        cinfo->unread_marker = 0;
        return TRUE;
    }

    struct Piece {
        const uint8_t* bytes;
        size_t size;
    };
    void take(const Piece& piece)
    {
        source_.next_input_byte = piece.bytes;
        source_.bytes_in_buffer = piece.size;
    }

    ImageFormat dst_;
    size_t frameBytes_ = 0;
    int pixelBytes_ = 2;
    bool created_ = false;
    JpegErrors errors_ = {};
    jpeg_decompress_struct cinfo_ = {};
    jpeg_source_mgr source_ = {};
    jpeg_progress_mgr progress_ = {};
    JpegTables tables_;
    JpegPlanes planes_;
    static constexpr int maxPieces = 2;
    Piece piece_[maxPieces] = {};  // of a band: its data, and the end marker
    int pieces_ = 0;  // not yet read
    int firstMarker_ = 0;  // number of the first restart marker
    uint8_t head_[headMost];
};

// Makes the libjpeg object, once for all images.
int JpegDecoder::setUp()
{
    if (setjmp(errors_.escape) != 0)
        return recordError(errors_.number, "JPEG decoder: %s", errors_.text);
    configure();
    return 0;
}

void JpegDecoder::configure()
{
    jpeg_create_decompress(&cinfo_);
    created_ = true;
    source_.init_source = initSource;
    source_.fill_input_buffer = sourceEmpty;
    source_.skip_input_data = skipSource;
    source_.resync_to_restart = resync;
    source_.term_source = endSource;
    cinfo_.src = &source_;
    cinfo_.client_data = this;
    progress_.progress_monitor = jpegWatch;
    cinfo_.progress = &progress_;
    tables_.prepare(&cinfo_);
}

int JpegDecoder::convert(const ConvertJob& job)
{
    if (job.outCapacity < frameBytes_)
        return recordError(ZV_ERROR_ARGUMENT, "the output buffer has %zu bytes of %zu", job.outCapacity, frameBytes_);
    errors_.job = &job;
    pieces_ = 0;
    firstMarker_ = 0;
    take({job.in, job.inSize});
    if (setjmp(errors_.escape) != 0) {
        jpeg_abort_decompress(&cinfo_);
        return recordError(errors_.number, "JPEG decoder: %s", errors_.text);
    }
    decode(job, 0, dst_.height);
    checkRest();
    return int(frameBytes_);
}

bool JpegDecoder::plan(const ConvertJob& job, int most, BandPlan* plan)
{
    JpegHead head;
    if (job.outCapacity < frameBytes_ || !readJpegHead(job.in, job.inSize, &head) || head.dataAt > headMost
        || head.width != dst_.width || head.height != dst_.height)
        return false;
    const bool smooth = dst_.packing != ZV_IMAGE_PACKING_CbYCrY || job.settings.speed == ZV_IC_SPEED_NONREALTIME;
    return (head.fullRows || !smooth) && planJpegBands(job.in, job.inSize, head, most, plan);
}

int JpegDecoder::convertBand(const ConvertJob& job, BandPlan::Band& band)
{
    static constexpr uint8_t end[] = {jpegMarker, jpegEoi};
    JpegHead head;
    if (!readJpegHead(job.in, job.inSize, &head))
        return -1;
    memcpy(head_, job.in, head.dataAt);
    head_[head.heightAt] = uint8_t(band.rows >> 8);
    head_[head.heightAt + 1] = uint8_t(band.rows & 0xff);
    piece_[0] = {job.in + band.begin, band.end - band.begin};
    piece_[1] = {end, sizeof end};
    pieces_ = maxPieces;
    firstMarker_ = band.marker;
    take({head_, head.dataAt});
    errors_.job = &job;
    if (setjmp(errors_.escape) != 0) {
        jpeg_abort_decompress(&cinfo_);
        return -1;
    }
    decode(job, band.row, band.rows);
    return 0;
}

// Rows of the picture from what the source holds. Jumps out on failure.
void JpegDecoder::decode(const ConvertJob& job, int row, int rows)
{
    tables_.reset(&cinfo_);
    jpeg_read_header(&cinfo_, TRUE);
    checkHeader(rows);
    checkKind();

    cinfo_.dct_method = JDCT_ISLOW;
    const bool pixels = jpegColorSpace(dst_.packing, &cinfo_.out_color_space, &pixelBytes_);
    if (!pixels)
        planes_.choose(&cinfo_, job.settings.speed == ZV_IC_SPEED_NONREALTIME);
    jpeg_start_decompress(&cinfo_);
    if (JpegTables::missing(cinfo_))
        jpegFail(common(), ZV_ERROR_DATA, "a component has no quantisation table");
    uint8_t* out = job.out + size_t(row) * size_t(dst_.width) * size_t(pixelBytes_);
    if (pixels)
        readPixels(out);
    else
        planes_.read(&cinfo_, out);
    jpeg_finish_decompress(&cinfo_);
}

// The size must be the one that is set: buffers were made for it.
void JpegDecoder::checkHeader(int rows)
{
    const int width = int(cinfo_.image_width);
    const int height = int(cinfo_.image_height);
    if (width == dst_.width && (height == rows / 2 || height == (rows + 1) / 2) && height != rows)
        jpegFail(common(), ZV_ERROR_DATA,
                 "the JPEG is %dx%d where %dx%d is set: one field, or two in one buffer, which are not woven", width,
                 height, dst_.width, rows);
    if (width != dst_.width || height != rows)
        jpegFail(common(), ZV_ERROR_DATA, "the JPEG is %dx%d where %dx%d is set", width, height, dst_.width, rows);
}

void JpegDecoder::checkKind()
{
    const J_COLOR_SPACE space = cinfo_.jpeg_color_space;
    if (space != JCS_GRAYSCALE && space != JCS_YCbCr && space != JCS_RGB)
        jpegFail(common(), ZV_ERROR_UNSUPPORTED,
                 "the JPEG has %d components of a colour space other than grey, YCbCr, RGB", cinfo_.num_components);
    if (space == JCS_RGB && dst_.packing == ZV_IMAGE_PACKING_CbYCrY)
        jpegFail(common(), ZV_ERROR_UNSUPPORTED, "the JPEG holds RGB, which is not decoded to CbYCrY");
}

// Straight into the rows of the buffer.
void JpegDecoder::readPixels(uint8_t* out)
{
    constexpr int maxRows = 4;
    const size_t stride = size_t(cinfo_.output_width) * size_t(cinfo_.output_components);
    while (cinfo_.output_scanline < cinfo_.output_height) {
        JSAMPROW rows[maxRows];
        const JDIMENSION left = cinfo_.output_height - cinfo_.output_scanline;
        const JDIMENSION n = left < maxRows ? left : maxRows;
        for (JDIMENSION i = 0; i < n; ++i)
            rows[i] = out + stride * (cinfo_.output_scanline + i);
        jpeg_read_scanlines(&cinfo_, rows, n);
    }
}

// A second picture behind the first would be lost unseen.
void JpegDecoder::checkRest()
{
    if (anotherJpegFollows(source_.next_input_byte, source_.bytes_in_buffer))
        jpegFail(common(), ZV_ERROR_DATA, "two pictures in one buffer: fields are not woven");
}

std::unique_ptr<ConvertEngine> openDecoder(const ImageFormat&, const ImageFormat& dst)
{
    auto engine = std::make_unique<JpegDecoder>(dst);
    if (engine->setUp() != 0)
        return nullptr;
    return engine;
}

}  // namespace

const ConverterKind jpegDecoder = {"JPEG decoder", decoderMatches, openDecoder};

}  // namespace kiv
