// kivIC.h - pushes every buffer through one image converter and hands the results on.
#pragma once

#include "core/kivObj.h"
#include "platform/zvic/zvic.h"

// Loop-bound; the converter works on threads of its own. Set the members, then
// setup once, then link and init. Until setup has succeeded the operations answer 2000.
class KIV_API kivIC : public kivObj {
public:
    kivIC();
    ~kivIC() override;

    int addSrcConstraints(ZVparams* params) override;  // what the converter needs of its input pool
    int addDstConstraints(ZVparams* params) override;  // the same of its output pool
    int init(kivParams* params) override;
    int getFD() override;  // 2000, no descriptor, before setup
    int handleEvents(fd_set readySet) override;
    int receive(ZVbuffer buf) override;

    virtual int setup();

    int setPrintReturnErr(int value);  // 1: every failure prints its block
    int setQueueMax(int images);  // after setup; images waiting at most, 0 = no limit
    int getStats(ZVicStats* stats);  // images sent, converted, failed, dropped

    int bufferSize;  // bytes of one uncompressed frame; from setup where the direction is known
    ZVimageconverter imgConvCtx;  // owned; 0 = none
    int fd;  // of the converter's output queue; -1 until first asked
    ZVicspeed speed;
    ZVcodedirection direction;  // tells which side is the uncompressed one
    ZVimagepacking srcPacking;
    ZVimagepacking dstPacking;
    const char* srcCompression;  // not owned
    const char* dstCompression;  // not owned
    int printReturnErr;  // exactly 1: print

protected:
    // Prints the block if wanted; returns the id.
    int fail(int errorID, int line, const char* file = "kivIC");
    int setConversion(const char* key, int value, const char* file = "kivIC");

private:
    int describe(ZVparams* params, ZVimagepacking packing, const char* compression);
    int configure(const ZVparams* src, const ZVparams* dst, const ZVparams* conv);
};
