// kivICjdecoder.cpp - see kivICjdecoder.h.
#include "convert/kivICjdecoder.h"

kivICjdecoder::kivICjdecoder()
{
    direction = ZV_IC_CODE_DIRECTION_DECODE;
    srcCompression = ZV_COMPRESSION_JPEG;
    dstCompression = ZV_COMPRESSION_UNCOMPRESSED;
}

kivICjdecoder::kivICjdecoder(int width, int height) : kivICjdecoder()
{
    imageSizeX = width;
    imageSizeY = height;
}

kivICjdecoder::~kivICjdecoder() = default;
