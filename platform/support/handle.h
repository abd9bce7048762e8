// handle.h - generation-checked handles for everything that is not a buffer.
//
// A handle is a pointer-sized word of kind (4 bits), slot (16) and generation
// (44). It is never an address: a null, stale or foreign one is told by
// comparing, and a recycled slot never revives an old handle. A table is a
// `constinit static` object: its pages cost nothing until they are used, and it
// has no destructor, so even a handle used after the end of main meets its slot.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/support/error.h"

namespace kiv {

enum class HandleKind : unsigned {
    Buffer = 1,
    Pool,
    Params,
    Semaphore,
    Arena,
    Converter,
    Movie,
    Track,
    Server,
    Drawable,
    Stats,
};

inline HandleKind handleKind(const void* handle)
{
    return static_cast<HandleKind>(reinterpret_cast<uintptr_t>(handle) >> 60);
}

// Objects of one kind. Pinning keeps an object alive across a call even when
// another thread retires its handle meanwhile; the last pin deletes it.
template <class T, HandleKind Kind>
class HandleTable {
    struct Slot {
        std::atomic<uint64_t> state{0};  // generation << 16 | references
        T* object = nullptr;
        unsigned nextFree = 0;  // slot + 1 of the next free slot, 0 at the end; guarded by freeLock_
    };

public:
    static constexpr unsigned capacity = 1u << 16;

    class Pin {
    public:
        Pin() = default;
        Pin(HandleTable* table, unsigned slot) : table_(table), slot_(slot) {}
        Pin(Pin&& other) noexcept : table_(std::exchange(other.table_, nullptr)), slot_(other.slot_) {}
        Pin& operator=(Pin&& other) noexcept
        {
            if (this != &other) {
                drop();
                table_ = std::exchange(other.table_, nullptr);
                slot_ = other.slot_;
            }
            return *this;
        }
        ~Pin() { drop(); }

        explicit operator bool() const { return table_ != nullptr; }
        T* operator->() const { return table_->slots_[slot_].object; }
        T& operator*() const { return *table_->slots_[slot_].object; }

    private:
        void drop()
        {
            if (table_ != nullptr)
                table_->unref(slot_);
            table_ = nullptr;
        }
        HandleTable* table_ = nullptr;
        unsigned slot_ = 0;
    };

    // Takes the object over; null, with an error recorded, when no slot is left.
    void* insert(std::unique_ptr<T> object)
    {
        std::lock_guard lock(freeLock_);
        unsigned slot = 0;
        if (firstFree_ != 0) {
            slot = firstFree_ - 1;
            firstFree_ = slots_[slot].nextFree;
        } else if (used_ < capacity) {
            slot = used_++;
        } else {
            recordError(ZV_ERROR_MEMORY, "no handle is left: %u objects of one kind are alive", capacity);
            return nullptr;
        }
        slots_[slot].object = object.release();
        const uint64_t generation = (slots_[slot].state.load(std::memory_order_relaxed) >> refBits) & generationMask;
        slots_[slot].state.store(generation << refBits | 1, std::memory_order_release);
        return encode(slot, generation);
    }

    // Empty, with an error recorded that names `what`, when the handle is not alive.
    Pin pin(const void* handle, const char* what)
    {
        unsigned slot = 0;
        uint64_t generation = 0;
        if (decode(handle, slot, generation)) {
            uint64_t state = slots_[slot].state.load(std::memory_order_acquire);
            while (isLive(state, generation)) {
                if (slots_[slot].state.compare_exchange_weak(state, state + 1, std::memory_order_acq_rel))
                    return Pin(this, slot);
            }
        }
        recordError(ZV_ERROR_HANDLE, "%s: null, stale or foreign handle %p", what, handle);
        return Pin();
    }

    // Ends the handle and returns a pin on its object, which dies with the last
    // pin. Exactly one of several callers gets it; the others get nothing.
    Pin retire(const void* handle, const char* what)
    {
        unsigned slot = 0;
        uint64_t generation = 0;
        if (decode(handle, slot, generation)) {
            uint64_t state = slots_[slot].state.load(std::memory_order_acquire);
            while (isLive(state, generation)) {
                // The table's own reference becomes the caller's.
                const uint64_t next = ((generation + 1) & generationMask) << refBits | (state & refMask);
                if (slots_[slot].state.compare_exchange_weak(state, next, std::memory_order_acq_rel))
                    return Pin(this, slot);
            }
        }
        recordError(ZV_ERROR_HANDLE, "%s: null, stale or foreign handle %p", what, handle);
        return Pin();
    }

private:
    static constexpr int refBits = 16;
    static constexpr uint64_t refMask = (1u << refBits) - 1;
    static constexpr uint64_t generationMask = (1ull << 44) - 1;

    static void* encode(unsigned slot, uint64_t generation)
    {
        return reinterpret_cast<void*>(static_cast<uintptr_t>(uint64_t(Kind) << 60 | uint64_t(slot) << 44 | generation));
    }

    static bool decode(const void* handle, unsigned& slot, uint64_t& generation)
    {
        const uint64_t word = reinterpret_cast<uintptr_t>(handle);
        slot = unsigned(word >> 44) & (capacity - 1);
        generation = word & generationMask;
        return handleKind(handle) == Kind;
    }

    static bool isLive(uint64_t state, uint64_t generation)
    {
        return state >> refBits == generation && (state & refMask) != 0;
    }

    void unref(unsigned slot)
    {
        const uint64_t before = slots_[slot].state.fetch_sub(1, std::memory_order_acq_rel);
        if ((before & refMask) != 1)
            return;
        delete slots_[slot].object;
        slots_[slot].object = nullptr;
        std::lock_guard lock(freeLock_);
        slots_[slot].nextFree = std::exchange(firstFree_, slot + 1);
    }

    Slot slots_[capacity];
    std::mutex freeLock_;
    unsigned firstFree_ = 0;  // guarded by freeLock_
    unsigned used_ = 0;       // guarded by freeLock_
};

}  // namespace kiv
