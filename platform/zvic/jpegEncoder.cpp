// jpegEncoder.cpp - uncompressed pictures to JPEG.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "platform/support/error.h"
#include "platform/zvic/codec.h"
#include "platform/zvic/jpegBands.h"
#include "platform/zvic/jpegSupport.h"
#include "platform/zvic/rows.h"

namespace kiv {

namespace {

constexpr int groupRows = DCTSIZE;  // luma rows of one row of blocks at 4:2:2
constexpr int longestInterval = 65535;  // MCUs between two restart markers

// Restart intervals of a picture when nothing is asked: bands small enough to be
// worth a thread's wake-up each.
int usualBands(int height) { return height < 480 ? 1 : height <= 1088 ? 2 : 4; }

bool encoderMatches(const ImageFormat& src, const ImageFormat& dst)
{
    J_COLOR_SPACE space;
    int bytes = 0;
    return !src.jpeg && dst.jpeg
        && (src.packing == ZV_IMAGE_PACKING_CbYCrY || jpegColorSpace(src.packing, &space, &bytes));
}

// Colour pictures become 4:2:2, LUMINANCE becomes grey. CbYCrY goes in as it is,
// row group by row group, through planes that stay in cache. Rows of blocks depend
// on one another only through the entropy coder. Restart markers part them into
// bands: the bytes are the same whether one engine codes the picture or each band
// has its own.
class JpegEncoder final : public ConvertEngine {
public:
    explicit JpegEncoder(const ImageFormat& src) : src_(src), frameBytes_(size_t(imageBytesMax(src)))
    {
        raw_ = src.packing == ZV_IMAGE_PACKING_CbYCrY;
        cinfo_.err = jpegErrorsInit(&errors_);
    }

    ~JpegEncoder() override
    {
        if (created_)
            jpeg_destroy_compress(&cinfo_);
    }

    int setUp();
    int convert(const ConvertJob& job) override;
    bool plan(const ConvertJob& job, int most, BandPlan* plan) override;
    int convertBand(const ConvertJob& job, BandPlan::Band& band) override;
    int join(const ConvertJob& job, const BandPlan& plan) override;

private:
    // Rows of the picture, and the room for their bytes.
    struct Piece {
        const uint8_t* in;
        int rows;
        uint8_t* out;
        size_t room;
        bool tables;  // the head has them
    };

    void configure();
    int encode(const ConvertJob& job, const Piece& piece);
    size_t write(const ConvertJob& job, const Piece& piece);
    int bandRows(const ConvertSettings& settings) const;
    void applySettings(const ConvertSettings& settings);
    void writeCbYCrY(const uint8_t* in);
    void writePixels(const uint8_t* in);

    // Bounded output straight into the buffer: libjpeg asks for more room only when there is none.
    static void initDestination(j_compress_ptr) { }
    static boolean destinationFull(j_compress_ptr cinfo)
    {
        jpegFail(reinterpret_cast<j_common_ptr>(cinfo), ZV_ERROR_DATA, "the JPEG does not fit its buffer");
    }
    static void endDestination(j_compress_ptr) { }

    ImageFormat src_;
    size_t frameBytes_;
    bool raw_ = false;
    bool created_ = false;
    int quality_ = -1;  // percent, as last given to libjpeg
    int pixelBytes_ = 2;
    JpegErrors errors_ = {};
    jpeg_compress_struct cinfo_ = {};
    jpeg_destination_mgr destination_ = {};
    jpeg_progress_mgr progress_ = {};
    PlaneRows planes_;
    std::unique_ptr<uint8_t[]> scratch_;
};

// Makes the libjpeg object, once for all images. Throws std::bad_alloc.
int JpegEncoder::setUp()
{
    if (raw_) {
        planes_.yStride = (src_.width + 63) & ~63;
        planes_.cStride = planes_.yStride / 2;
        scratch_.reset(new uint8_t[size_t(planes_.yStride) * 2 * groupRows]());
        planes_.y = scratch_.get();
        planes_.cb = planes_.y + planes_.yStride * groupRows;
        planes_.cr = planes_.cb + planes_.cStride * groupRows;
    }
    if (setjmp(errors_.escape) != 0)
        return recordError(errors_.number, "JPEG encoder: %s", errors_.text);
    configure();
    return 0;
}

void JpegEncoder::configure()
{
    jpeg_create_compress(&cinfo_);
    created_ = true;
    destination_.init_destination = initDestination;
    destination_.empty_output_buffer = destinationFull;
    destination_.term_destination = endDestination;
    cinfo_.dest = &destination_;
    progress_.progress_monitor = jpegWatch;
    cinfo_.progress = &progress_;

    cinfo_.image_width = JDIMENSION(src_.width);
    cinfo_.image_height = JDIMENSION(src_.height);
    cinfo_.in_color_space = JCS_YCbCr;
    cinfo_.input_components = 3;
    if (!raw_) {
        jpegColorSpace(src_.packing, &cinfo_.in_color_space, &pixelBytes_);
        cinfo_.input_components = pixelBytes_;
    }
    jpeg_set_defaults(&cinfo_);
    cinfo_.raw_data_in = boolean(raw_);
    cinfo_.dct_method = JDCT_ISLOW;
    if (cinfo_.num_components == 3) {
        cinfo_.comp_info[0].h_samp_factor = 2;
        cinfo_.comp_info[0].v_samp_factor = 1;
    }
}

int JpegEncoder::convert(const ConvertJob& job)
{
    if (job.inSize < frameBytes_)
        return recordError(ZV_ERROR_DATA, "the image has %zu bytes of %zu", job.inSize, frameBytes_);
    return encode(job, {job.in, src_.height, job.out, job.outCapacity, true});
}

// Bytes written, or -1 with an error recorded.
int JpegEncoder::encode(const ConvertJob& job, const Piece& piece)
{
    errors_.job = &job;
    if (setjmp(errors_.escape) != 0) {
        jpeg_abort_compress(&cinfo_);
        return recordError(errors_.number, "JPEG encoder: %s", errors_.text);
    }
    return int(write(job, piece));
}

size_t JpegEncoder::write(const ConvertJob& job, const Piece& piece)
{
    applySettings(job.settings);
    const int rowsEach = bandRows(job.settings);
    cinfo_.restart_in_rows = rowsEach < src_.height ? rowsEach / groupRows : 0;
    cinfo_.restart_interval = 0;  // libjpeg's own, from the rows
    cinfo_.image_height = JDIMENSION(piece.rows);
    destination_.next_output_byte = piece.out;
    destination_.free_in_buffer = piece.room;
    if (piece.room == 0)
        destinationFull(&cinfo_);
    jpeg_suppress_tables(&cinfo_, boolean(!piece.tables));
    jpeg_start_compress(&cinfo_, FALSE);
    if (raw_)
        writeCbYCrY(piece.in);
    else
        writePixels(piece.in);
    jpeg_finish_compress(&cinfo_);
    return piece.room - destination_.free_in_buffer;
}

// Rows of pixels between two restart markers; the picture's height when there are none.
int JpegEncoder::bandRows(const ConvertSettings& settings) const
{
    const int bands = settings.bands > 0 ? settings.bands : usualBands(src_.height);
    const int groups = (src_.height + groupRows - 1) / groupRows;
    const int each = (groups + bands - 1) / bands;
    const int mcuWidth = cinfo_.num_components == 1 ? DCTSIZE : 2 * DCTSIZE;
    const int mcusPerRow = (src_.width + mcuWidth - 1) / mcuWidth;
    return each < groups && each <= longestInterval / mcusPerRow ? each * groupRows : src_.height;
}

// Each band is written into a part of the output of its own.
bool JpegEncoder::plan(const ConvertJob& job, int, BandPlan* plan)
{
    const int rowsEach = bandRows(job.settings);
    const int count = (src_.height + rowsEach - 1) / rowsEach;
    if (count < 2 || count > BandPlan::most || job.inSize < frameBytes_)
        return false;
    const size_t room = job.outCapacity / size_t(count);
    for (int i = 0; i < count; ++i) {
        BandPlan::Band& band = plan->bands[i];
        band = {};
        band.row = i * rowsEach;
        band.rows = std::min(rowsEach, src_.height - band.row);
        band.begin = size_t(i) * room;
        band.end = band.begin + room;
    }
    plan->count = count;
    return true;
}

// A JPEG of the band alone; all but the first without tables.
int JpegEncoder::convertBand(const ConvertJob& job, BandPlan::Band& band)
{
    const size_t rowBytes = size_t(src_.width) * size_t(pixelBytes_);
    const int bytes = encode(
        job,
        {job.in + size_t(band.row) * rowBytes, band.rows, job.out + band.begin, band.end - band.begin, band.row == 0});
    band.bytes = size_t(std::max(bytes, 0));
    return bytes < 0 ? -1 : 0;
}

// The first band's head with the whole height, then the bands' data with a
// restart marker between two.
int JpegEncoder::join(const ConvertJob& job, const BandPlan& plan)
{
    JpegHead head;
    const BandPlan::Band& first = plan.bands[0];
    if (!readJpegHead(job.out, first.bytes, &head))
        return recordError(ZV_ERROR_DATA, "JPEG encoder: a band has no head");
    job.out[head.heightAt] = uint8_t(src_.height >> 8);
    job.out[head.heightAt + 1] = uint8_t(src_.height & 0xff);
    size_t end = first.bytes;
    for (int i = 1; i < plan.count; ++i) {
        const BandPlan::Band& band = plan.bands[i];
        JpegHead own;
        if (!readJpegHead(job.out + band.begin, band.bytes, &own))
            return recordError(ZV_ERROR_DATA, "JPEG encoder: a band has no head");
        job.out[end - 1] = uint8_t(jpegRst0 + ((i - 1) & 7));  // for the end marker
        memmove(job.out + end, job.out + band.begin + own.dataAt, band.bytes - own.dataAt);
        end += band.bytes - own.dataAt;
    }
    return int(end);
}

void JpegEncoder::applySettings(const ConvertSettings& settings)
{
    const int quality = int(std::lround(settings.quality * 100));
    if (quality == quality_)
        return;
    jpeg_set_quality(&cinfo_, quality, TRUE);
    quality_ = quality;
}

// De-interleaves one row of blocks at a time and hands it to the transform.
// What lies right of and below the picture repeats its edge.
void JpegEncoder::writeCbYCrY(const uint8_t* in)
{
    const ptrdiff_t stride = 2 * ptrdiff_t(src_.width);
    const int pairs = (src_.width + 1) / 2;
    const int paddedPairs = (pairs + DCTSIZE - 1) & ~(DCTSIZE - 1);
    JSAMPROW rows[3][groupRows];
    JSAMPARRAY groups[3] = {rows[0], rows[1], rows[2]};
    const int height = int(cinfo_.image_height);
    for (int y = 0; y < height; y += groupRows) {
        const int n = std::min(height - y, groupRows);
        unpackCbYCrY(in + y * stride, stride, planes_, src_.width, n);
        for (int i = 0; i < groupRows; ++i) {
            const int row = i < n ? i : n - 1;
            rows[0][i] = planes_.y + row * planes_.yStride;
            rows[1][i] = planes_.cb + row * planes_.cStride;
            rows[2][i] = planes_.cr + row * planes_.cStride;
            padRow(rows[0][i], src_.width, 2 * paddedPairs);
            padRow(rows[1][i], pairs, paddedPairs);
            padRow(rows[2][i], pairs, paddedPairs);
        }
        jpeg_write_raw_data(&cinfo_, groups, groupRows);
    }
}

void JpegEncoder::writePixels(const uint8_t* in)
{
    const size_t stride = size_t(src_.width) * size_t(pixelBytes_);
    while (cinfo_.next_scanline < cinfo_.image_height) {
        JSAMPROW rows[groupRows];
        for (int i = 0; i < groupRows; ++i) {
            const JDIMENSION y = cinfo_.next_scanline + JDIMENSION(i);
            rows[i] = const_cast<JSAMPROW>(in + stride * (y < cinfo_.image_height ? y : cinfo_.image_height - 1));
        }
        jpeg_write_scanlines(&cinfo_, rows, groupRows);
    }
}

std::unique_ptr<ConvertEngine> openEncoder(const ImageFormat& src, const ImageFormat&)
{
    auto engine = std::make_unique<JpegEncoder>(src);
    if (engine->setUp() != 0)
        return nullptr;
    return engine;
}

}  // namespace

const ConverterKind jpegEncoder = {"JPEG encoder", encoderMatches, openEncoder};

}  // namespace kiv
