// jpegTables.cpp - tables of a reused decoder.
#include "platform/zvic/jpegTables.h"

#include <cstring>

namespace kiv {

void JpegTables::prepare(j_decompress_ptr cinfo)
{
    jpeg_compress_struct standard = {};
    standard.err = cinfo->err;
    jpeg_create_compress(&standard);
    standard.in_color_space = JCS_YCbCr;
    standard.input_components = 3;
    jpeg_set_defaults(&standard);
    memset(dc_, 0, sizeof dc_);  // a table without codes: whoever uses it is damaged
    memset(ac_, 0, sizeof ac_);
    for (int i = 0; i < 2; ++i) {
        dc_[i] = *standard.dc_huff_tbl_ptrs[i];
        ac_[i] = *standard.ac_huff_tbl_ptrs[i];
    }
    jpeg_destroy_compress(&standard);

    const auto common = reinterpret_cast<j_common_ptr>(cinfo);
    for (int i = 0; i < NUM_HUFF_TBLS; ++i) {
        cinfo->dc_huff_tbl_ptrs[i] = jpeg_alloc_huff_table(common);
        cinfo->ac_huff_tbl_ptrs[i] = jpeg_alloc_huff_table(common);
        cinfo->quant_tbl_ptrs[i] = jpeg_alloc_quant_table(common);
    }
}

void JpegTables::reset(j_decompress_ptr cinfo) const
{
    for (int i = 0; i < NUM_HUFF_TBLS; ++i) {
        *cinfo->dc_huff_tbl_ptrs[i] = dc_[i];
        *cinfo->ac_huff_tbl_ptrs[i] = ac_[i];
        cinfo->quant_tbl_ptrs[i]->quantval[0] = 0;  // no table of a file may hold a zero
    }
}

bool JpegTables::missing(const jpeg_decompress_struct& cinfo)
{
    for (int i = 0; i < cinfo.num_components; ++i) {
        const JQUANT_TBL* table = cinfo.comp_info[i].quant_table;
        if (cinfo.comp_info[i].component_needed && (table == nullptr || table->quantval[0] == 0))
            return true;
    }
    return false;
}

}  // namespace kiv
