// slots.h - the slot number of a virtual operation, as a binary caller sees it.
#pragma once

#include <cstdint>
#include <cstring>

// A pointer to a virtual member is one more than its byte offset in the table; the
// destructor, slot 1, takes two entries.
template <class Member> int slotOf(Member member)
{
    uintptr_t word = 0;
    std::memcpy(&word, &member, sizeof word);
    return word % 8 == 1 ? int(word / 8) : -1;
}
