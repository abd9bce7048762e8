// paramList.h - one parameter list: values, and the table of lists.
#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/support/handle.h"
#include "platform/zv/zv.h"

namespace kiv {

// A list inside another one: it owns the handle, so nobody else ends it.
class NestedParams {
public:
    explicit NestedParams(ZVparams* handle) : handle_(handle) { }
    NestedParams(NestedParams&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) { }
    NestedParams& operator=(NestedParams&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~NestedParams();
    ZVparams* handle() const { return handle_; }

private:
    ZVparams* handle_;
};

// Texts, and the pointers to them that a getter hands out.
class TextArray {
public:
    TextArray(const char* const* values, int n);
    TextArray(const TextArray& other);
    TextArray(TextArray&&) = default;  // the texts stay where they are
    TextArray& operator=(TextArray&&) = default;
    const std::vector<const char*>& pointers() const { return pointers_; }

private:
    void point();
    std::vector<std::string> texts_;
    std::vector<const char*> pointers_;
};

// Integers, enums and long longs are one alternative, ranges are arrays of two:
// the element's type tells them apart.
using ParamValue = std::variant<long long, double, std::string, ZVfract, NestedParams, std::vector<int>,
                                std::vector<double>, std::vector<ZVfract>, TextArray>;

struct ParamElement {
    std::string key;
    int type;
    ParamValue value;
};

// Few elements are the rule, so they are scanned. Elements are never removed
// and never move: what a getter hands out stands while others are added.
struct ParamList {
    ParamList(int listLevel, bool inside) : level(listLevel), nested(inside) { }
    ParamElement* find(const char* key);

    const int level;  // lists around this one
    const bool nested;  // owned by the list around it
    std::mutex lock;  // guards the elements
    std::deque<ParamElement> elements;  // in the order of their first setting
};

using ParamTable = HandleTable<ParamList, HandleKind::Params>;

// Empty, with an error recorded, for a handle that is not alive.
ParamTable::Pin pinList(const ZVparams* p);

// False, with an error recorded, for a null or an empty key.
bool isKey(const char* key);

// A deep copy that lies `level` lists deep, for a NestedParams to own; null, with
// an error recorded. This and the next may throw std::bad_alloc.
ZVparams* copyNested(const ZVparams* from, int level);

// Sets or replaces one element. The old value dies outside the lock.
int setElement(ZVparams* p, const char* key, int type, ParamValue value);

}  // namespace kiv
