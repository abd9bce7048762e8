// poolTools.h - what several tests here ask about a pool and about the process.
#pragma once

#include "platform/zv/zv.h"

int lastError();  // number of this thread's last error
ZVbufferpool makePool(int count, int size);  // null on failure; the caller destroys it
ZVpoolLedger ledgerOf(ZVbufferpool pool);
bool isReady(int fd);  // readable and writable; fails the test when only one of them
int openFiles();  // descriptors of this process
int poolMappings();  // mapped memory files of pools
