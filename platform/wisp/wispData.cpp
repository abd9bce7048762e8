// wispData.cpp - the class's one home for its table of virtuals.
#include "platform/wisp/wispData.h"

wispData::~wispData() = default;
