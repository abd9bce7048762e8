// page.cpp - see page.h.
#include "platform/stats/page.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/support/error.h"
#include "platform/zv/internal.h"

namespace kiv {

namespace {

constexpr size_t headBytes = (sizeof(StatsHead) + 63) / 64 * 64;

size_t bytesFor(int capacity) { return headBytes + size_t(capacity) * sizeof(STATSnode); }

template <size_t N> void copyText(char (&to)[N], const char* from)
{
    const size_t length = from != nullptr ? strnlen(from, N - 1) : 0;
    memcpy(to, from != nullptr ? from : "", length);
    memset(to + length, 0, N - length);
}

}  // namespace

StatsPage::StatsPage(UniqueFd fd, void* memory, size_t bytes, bool own)
    : fd_(std::move(fd)), head_(static_cast<StatsHead*>(memory)),
      records_(reinterpret_cast<STATSnode*>(static_cast<char*>(memory) + headBytes)), bytes_(bytes), own_(own)
{
}

StatsPage::~StatsPage()
{
    if (own_)
        __atomic_store_n(&head_->ended, 1, __ATOMIC_RELEASE);
    munmap(head_, bytes_);
}

std::unique_ptr<StatsPage> StatsPage::create(const char* title, int maxNodes)
{
    if (maxNodes < 1 || maxNodes > STATS_MAX_NODES) {
        recordError(ZV_ERROR_ARGUMENT, "a page of statistics has 1 to %d nodes, not %d", STATS_MAX_NODES, maxNodes);
        return nullptr;
    }
    const size_t bytes = bytesFor(maxNodes);
    UniqueFd fd(memfd_create("kiv-stats", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    void* memory = MAP_FAILED;
    if (fd && ftruncate(fd.get(), off_t(bytes)) == 0
        && fcntl(fd.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0)
        memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (memory == MAP_FAILED) {
        recordSystemError(ZV_ERROR_SYSTEM, "a page of statistics");
        return nullptr;
    }
    std::unique_ptr<StatsPage> page(new StatsPage(std::move(fd), memory, bytes, true));
    StatsHead* head = page->head_;
    head->magic = StatsHead::mark;
    head->layout = StatsHead::thisLayout;
    head->capacity = maxNodes;
    head->pid = getpid();
    head->startedNs = head->updatedNs = (long long)(now());
    copyText(head->title, title);
    return page;
}

// What another process wrote is believed only as far as it stays inside the file, which
// must be one that cannot shrink below a reader.
std::unique_ptr<StatsPage> StatsPage::open(UniqueFd fd)
{
    struct stat facts;
    const int seals = fcntl(fd.get(), F_GET_SEALS);
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || fstat(fd.get(), &facts) != 0 || facts.st_size < off_t(bytesFor(1))
        || facts.st_size > off_t(bytesFor(STATS_MAX_NODES))) {
        recordError(ZV_ERROR_ARGUMENT, "this is no page of statistics");
        return nullptr;
    }
    const size_t bytes = size_t(facts.st_size);
    void* memory = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd.get(), 0);
    if (memory == MAP_FAILED) {
        recordSystemError(ZV_ERROR_SYSTEM, "a page of statistics");
        return nullptr;
    }
    std::unique_ptr<StatsPage> page(new StatsPage(std::move(fd), memory, bytes, false));
    const StatsHead* head = page->head_;
    if (head->magic == StatsHead::mark && head->layout == StatsHead::thisLayout && head->capacity > 0
        && head->capacity <= STATS_MAX_NODES && bytesFor(head->capacity) <= bytes)
        return page;
    recordError(ZV_ERROR_ARGUMENT, "this page of statistics is of another version");
    return nullptr;
}

// Complete records; never more than the file holds.
int StatsPage::nodes() const
{
    const int said = __atomic_load_n(&head_->nodes, __ATOMIC_ACQUIRE);
    const int fit = int((bytes_ - headBytes) / sizeof(STATSnode));
    return std::clamp(said, 0, fit);
}

STATSnode* StatsPage::add(const char* name, const char* kind, const char* format, int number, int parent)
{
    const int index = nodes();
    if (!own_ || index >= head_->capacity || parent >= index || parent < -1) {
        recordError(ZV_ERROR_ARGUMENT, "no record for node %d on this page", number);
        return nullptr;
    }
    STATSnode* node = &records_[index];
    copyText(node->name, name);
    copyText(node->kind, kind);
    copyText(node->format, format);
    node->number = number;
    node->parent = parent;
    __atomic_store_n(&head_->nodes, index + 1, __ATOMIC_RELEASE);
    return node;
}

int StatsPage::update(long long nowNs, long long cpuNs)
{
    if (!own_)
        return recordError(ZV_ERROR_STATE, "this page of statistics is another process's");
    statsSet(&head_->updatedNs, nowNs);
    statsSet(&head_->cpuNs, cpuNs);
    return 0;
}

int StatsPage::info(STATSinfo* info) const
{
    copyText(info->title, head_->title);
    info->ended = __atomic_load_n(&head_->ended, __ATOMIC_ACQUIRE) != 0;
    info->pid = head_->pid;
    info->nodes = nodes();
    info->startedNs = head_->startedNs;
    info->updatedNs = __atomic_load_n(&head_->updatedNs, __ATOMIC_RELAXED);
    info->cpuNs = __atomic_load_n(&head_->cpuNs, __ATOMIC_RELAXED);
    return 0;
}

int StatsPage::node(int index, STATSnode* node) const
{
    if (index < 0 || index >= nodes())
        return recordError(ZV_ERROR_ARGUMENT, "there is no node %d on this page", index);
    const STATSnode& from = records_[index];
    copyText(node->name, from.name);
    copyText(node->kind, from.kind);
    copyText(node->format, from.format);
    node->out = 0;
    node->number = from.number;
    node->parent = from.parent < index && from.parent >= -1 ? from.parent : -1;
    for (const auto number : {&STATSnode::in, &STATSnode::timed, &STATSnode::timedNs, &STATSnode::dropped,
                              &STATSnode::waiting, &STATSnode::poolBuffers, &STATSnode::poolInUse, &STATSnode::workNs})
        node->*number = __atomic_load_n(&(from.*number), __ATOMIC_RELAXED);
    // All nodes below one get all that it hands on.
    for (int i = index + 1, n = nodes(); i < n; ++i)
        if (records_[i].parent == index)
            node->out = std::max(node->out, __atomic_load_n(&records_[i].in, __ATOMIC_RELAXED));
    for (int i = 0; i < STATS_AGES; ++i)
        node->ages[i] = __atomic_load_n(&from.ages[i], __ATOMIC_RELAXED);
    return 0;
}

}  // namespace kiv
