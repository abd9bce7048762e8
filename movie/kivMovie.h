// kivMovie.h - base of every movie source.
#pragma once

#include "core/kivObj.h"

// Loop-bound. Says only what a movie source is not: it has no constraints of its
// own, receives nothing and cannot be added to a running graph.
class KIV_API kivMovie : public kivObj {
public:
    kivMovie();
    ~kivMovie() override;

    int addSrcConstraints(ZVparams* params) override;
    int addDstConstraints(ZVparams* params) override;
    int init(kivParams* params) override;
    int start(int withChildren) override;
    int getFD() override;
    int handleEvents(fd_set fdSet) override;
    int receive(ZVbuffer inBuffer) override;
    int easyToAdd() override;

    int movieStarted = 0;
};
