// kivMovie.cpp - see kivMovie.h.
#include "movie/kivMovie.h"

kivMovie::kivMovie() = default;

kivMovie::~kivMovie() = default;

int kivMovie::addSrcConstraints(ZVparams*) { return kivErrNotImplemented; }

int kivMovie::addDstConstraints(ZVparams*) { return kivErrNotImplemented; }

// What follows belongs to the derived classes.
int kivMovie::init(kivParams*) { return kivErrVirtual; }

int kivMovie::start(int) { return kivErrVirtual; }

int kivMovie::getFD() { return kivErrVirtual; }

int kivMovie::handleEvents(fd_set) { return kivErrVirtual; }

int kivMovie::receive(ZVbuffer) { return kivErrVirtual; }

int kivMovie::easyToAdd() { return 0; }
