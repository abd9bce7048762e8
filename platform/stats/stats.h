/* stats.h - a page of statistics that other processes can look at.
 *
 * A page is a small memory file: a head, and a record for each node of a graph. The
 * process that runs the graph counts in it; whoever may look into that process (the same
 * user) finds the page through /proc and reads it at any time. Nobody waits for anybody:
 * every number is written and read by itself, relaxed.
 *
 * Calls are thread-safe; one thread counts for one record at a time. */
#ifndef KIV_PLATFORM_STATS_H
#define KIV_PLATFORM_STATS_H

#include "platform/api.h"

KIV_C_BEGIN

typedef struct STATSpageRec* STATSpage;

#define STATS_MAX_NODES 256
#define STATS_NAME_MAX 32
#define STATS_TEXT_MAX 96
#define STATS_AGES 104 /* classes of ages, four to each doubling from 1 us on */

/* One node. Names and numbers are set once, before the record is seen; the rest goes on. */
typedef struct STATSnode {
    char name[STATS_NAME_MAX]; /* as the user calls it */
    char kind[STATS_NAME_MAX]; /* what it is */
    char format[STATS_TEXT_MAX]; /* what leaves it, in words */
    int number; /* in the graph, from 1 */
    int parent; /* index of the node above, -1 for none; less than its own */

    /* Counted as frames pass. */
    long long in; /* frames handed to it; 0 for a source */
    long long out; /* frames handed on; only in a copy: what came to the nodes below */
    long long timed; /* of them, those whose time and age were taken */
    long long timedNs; /* in its receive, without what it called in turn, for all timed ones */
    unsigned ages[STATS_AGES]; /* of timed frames when they came: now less their stamp */

    /* Taken now and then. */
    long long dropped;
    long long waiting; /* frames inside it, not yet begun or not yet gone */
    long long poolBuffers; /* of its pool; 0 for none */
    long long poolInUse;
    long long workNs; /* CPU time of threads of its own */
} STATSnode;

typedef struct STATSinfo {
    int ended; /* 1: the owner has closed the page, and the numbers are the last */
    char title[STATS_TEXT_MAX];
    int pid;
    int nodes;
    long long startedNs; /* clock of zvGetUST */
    long long updatedNs; /* when the owner's loop was last known to turn; the same clock */
    long long cpuNs; /* of the whole process */
} STATSinfo;

/* A fresh page of this process for that many nodes at most. 0, or -1 and null. */
KIV_API int statsCreate(const char* title, int maxNodes, STATSpage* out);
/* The page of a running process; of a descriptor, which stays the caller's. Read only.
 * ZV_ERROR_EMPTY when the process has none. 0, or -1 and null. */
KIV_API int statsOpenProcess(int pid, STATSpage* out);
KIV_API int statsOpenFD(int fd, STATSpage* out);
KIV_API int statsClose(STATSpage page); /* records of it must no longer be used */
/* The memory file, for handing it to another process; the page's own. -1 for no page. */
KIV_API int statsGetFD(STATSpage page);

/* The next record, for the owner alone; name, kind and format are cut to fit. Null when the
 * page is full or not one's own. It stays where it is until statsClose. */
KIV_API STATSnode* statsAddNode(STATSpage page, const char* name, const char* kind, const char* format, int number,
                                int parent);
/* The owner's loop turns: now, and what the process has used. */
KIV_API int statsUpdate(STATSpage page, long long nowNs, long long cpuNs);

/* Copies. -1 for no page or no such node. */
KIV_API int statsGetInfo(STATSpage page, STATSinfo* info);
KIV_API int statsGetNode(STATSpage page, int index, STATSnode* node);

/* Which class an age in ns belongs to, and the middle of a class; -1 and 0 outside. */
KIV_API int statsAgeClass(long long ns);
KIV_API double statsClassMs(int ageClass);

/* For the owner's counters: no other thread writes them. */
static inline void statsAdd(long long* counter, long long more)
{
    __atomic_store_n(counter, __atomic_load_n(counter, __ATOMIC_RELAXED) + more, __ATOMIC_RELAXED);
}
static inline void statsSet(long long* value, long long now) { __atomic_store_n(value, now, __ATOMIC_RELAXED); }

KIV_C_END

#endif
