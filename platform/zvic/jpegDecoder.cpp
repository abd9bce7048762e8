// jpegDecoder.cpp - JPEG to uncompressed pictures.
#include <cstring>
#include <new>

#include "platform/support/error.h"
#include "platform/zvic/codec.h"
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
class JpegDecoder final : public ConvertEngine {
public:
    explicit JpegDecoder(const ImageFormat& dst) : dst_(dst), planes_(dst.width, dst.height)
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

private:
    void configure();
    int decode(const ConvertJob& job);
    void checkHeader();
    void readPixels(uint8_t* out);
    void checkRest();
    j_common_ptr common() { return reinterpret_cast<j_common_ptr>(&cinfo_); }

    static void initSource(j_decompress_ptr) { }
    static void endSource(j_decompress_ptr) { }
    static boolean sourceEmpty(j_decompress_ptr cinfo)
    {
        jpegFail(reinterpret_cast<j_common_ptr>(cinfo), ZV_ERROR_DATA, "the JPEG ends early");
    }
    static void skipSource(j_decompress_ptr cinfo, long bytes)
    {
        if (bytes <= 0)
            return;
        if (size_t(bytes) > cinfo->src->bytes_in_buffer)
            sourceEmpty(cinfo);
        cinfo->src->next_input_byte += bytes;
        cinfo->src->bytes_in_buffer -= size_t(bytes);
    }

    ImageFormat dst_;
    size_t frameBytes_ = 0;
    bool created_ = false;
    JpegErrors errors_ = {};
    jpeg_decompress_struct cinfo_ = {};
    jpeg_source_mgr source_ = {};
    jpeg_progress_mgr progress_ = {};
    JpegTables tables_;
    JpegPlanes planes_;
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
    source_.resync_to_restart = jpeg_resync_to_restart;
    source_.term_source = endSource;
    cinfo_.src = &source_;
    progress_.progress_monitor = jpegWatch;
    cinfo_.progress = &progress_;
    tables_.prepare(&cinfo_);
}

int JpegDecoder::convert(const ConvertJob& job)
{
    if (job.outCapacity < frameBytes_)
        return recordError(ZV_ERROR_ARGUMENT, "the output buffer has %zu bytes of %zu", job.outCapacity, frameBytes_);
    errors_.job = &job;
    if (setjmp(errors_.escape) != 0) {
        jpeg_abort_decompress(&cinfo_);
        return recordError(errors_.number, "JPEG decoder: %s", errors_.text);
    }
    return decode(job);
}

int JpegDecoder::decode(const ConvertJob& job)
{
    tables_.reset(&cinfo_);
    source_.next_input_byte = job.in;
    source_.bytes_in_buffer = job.inSize;
    jpeg_read_header(&cinfo_, TRUE);
    checkHeader();

    cinfo_.dct_method = JDCT_ISLOW;
    int pixelBytes = 0;
    const bool pixels = jpegColorSpace(dst_.packing, &cinfo_.out_color_space, &pixelBytes);
    if (!pixels)
        planes_.choose(&cinfo_, job.settings.speed == ZV_IC_SPEED_NONREALTIME);
    jpeg_start_decompress(&cinfo_);
    if (JpegTables::missing(cinfo_))
        jpegFail(common(), ZV_ERROR_DATA, "a component has no quantisation table");
    if (pixels)
        readPixels(job.out);
    else
        planes_.read(&cinfo_, job.out);
    jpeg_finish_decompress(&cinfo_);
    checkRest();
    return int(frameBytes_);
}

// Size and components must be those that are set: buffers were made for them.
void JpegDecoder::checkHeader()
{
    const int width = int(cinfo_.image_width);
    const int height = int(cinfo_.image_height);
    if (width == dst_.width && (height == dst_.height / 2 || height == (dst_.height + 1) / 2) && height != dst_.height)
        jpegFail(common(), ZV_ERROR_DATA,
                 "the JPEG is %dx%d where %dx%d is set: one field, or two in one buffer, which are not woven", width,
                 height, dst_.width, dst_.height);
    if (width != dst_.width || height != dst_.height)
        jpegFail(common(), ZV_ERROR_DATA, "the JPEG is %dx%d where %dx%d is set", width, height, dst_.width,
                 dst_.height);
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

// A second picture behind the first, as interlaced Motion-JPEG has it, would
// be lost unseen. Some padding may lie between the two.
void JpegDecoder::checkRest()
{
    constexpr size_t farthest = 64 << 10;
    const uint8_t* rest = source_.next_input_byte;
    const uint8_t* end = rest + (source_.bytes_in_buffer < farthest ? source_.bytes_in_buffer : farthest);
    while (rest < end && (*rest == 0 || (*rest == 0xff && rest + 1 < end && (rest[1] == 0xff || rest[1] == 0))))
        ++rest;
    if (end - rest >= 3 && rest[0] == 0xff && rest[1] == 0xd8 && rest[2] == 0xff)
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
