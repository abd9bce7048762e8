// ffmpegCalls.h - FFmpeg's functions, loaded when the first movie is opened.
//
// The libraries bring a hundred others with them and take tens of milliseconds
// to load, so a graph without a movie does without. Inside kiv::rk each name
// below is a pointer that hides the function of that name.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

// clang-format off
#define KIV_AVUTIL_CALLS(X) \
    X(av_div_q) X(av_frame_alloc) X(av_frame_free) X(av_frame_get_buffer) X(av_frame_make_writable) \
    X(av_frame_unref) X(av_free) X(av_get_pix_fmt_name) X(av_log_set_callback) X(av_malloc) \
    X(av_pix_fmt_desc_get) X(av_reduce) X(av_strerror)
#define KIV_AVCODEC_CALLS(X) \
    X(av_new_packet) X(av_packet_alloc) X(av_packet_free) X(av_packet_unref) X(avcodec_alloc_context3) \
    X(avcodec_descriptor_get) X(avcodec_find_decoder) X(avcodec_find_encoder) X(avcodec_flush_buffers) \
    X(avcodec_free_context) X(avcodec_get_name) X(avcodec_open2) X(avcodec_parameters_alloc) \
    X(avcodec_parameters_copy) X(avcodec_parameters_free) X(avcodec_parameters_to_context) \
    X(avcodec_receive_frame) X(avcodec_receive_packet) X(avcodec_send_frame) X(avcodec_send_packet)
#define KIV_AVFORMAT_CALLS(X) \
    X(av_find_input_format) X(av_read_frame) X(av_seek_frame) X(avformat_alloc_context) X(avformat_close_input) \
    X(avformat_find_stream_info) X(avformat_index_get_entries_count) X(avformat_index_get_entry) \
    X(avformat_open_input) X(avio_alloc_context) X(avio_context_free)
#define KIV_SWSCALE_CALLS(X) X(sws_freeContext) X(sws_getCoefficients) X(sws_getContext) X(sws_scale) X(sws_setColorspaceDetails)
// clang-format on

namespace kiv::rk {

#define KIV_DECLARE_CALL(name) extern decltype(&::name) name;
KIV_AVUTIL_CALLS(KIV_DECLARE_CALL)
KIV_AVCODEC_CALLS(KIV_DECLARE_CALL)
KIV_AVFORMAT_CALLS(KIV_DECLARE_CALL)
KIV_SWSCALE_CALLS(KIV_DECLARE_CALL)
#undef KIV_DECLARE_CALL

// Loads the libraries, once; before any of the calls above. 0, or -1 with an error
// recorded that names the library. Thread-safe. They stay for the process's life.
int loadFfmpeg();

}  // namespace kiv::rk
