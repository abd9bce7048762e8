// paramList.cpp - lists, their elements, and copies of them.
#include "platform/zv/paramList.h"

#include <algorithm>
#include <new>
#include <optional>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/zv/internal.h"

namespace kiv {

namespace {

constinit ParamTable table;

constexpr int maxLevel = 16;  // lists within lists: copying and ending them recurses

ZVparams* insertList(std::unique_ptr<ParamList> list) { return static_cast<ZVparams*>(table.insert(std::move(list))); }

// The value again, for a list of that level; nothing, with an error recorded,
// when a nested list cannot be copied.
struct Copier {
    int level;
    template <class T> std::optional<ParamValue> operator()(const T& value) const { return ParamValue(value); }
    std::optional<ParamValue> operator()(const NestedParams& value) const
    {
        ZVparams* copy = copyNested(value.handle(), level + 1);
        if (copy == nullptr)
            return std::nullopt;
        return ParamValue(NestedParams(copy));
    }
};

// Appends copies of all elements of `from`; the caller holds no lock.
bool copyElements(ParamList& from, int level, std::deque<ParamElement>& into)
{
    std::lock_guard guard(from.lock);
    for (const ParamElement& element : from.elements) {
        std::optional<ParamValue> value = std::visit(Copier{level}, element.value);
        if (!value)
            return false;
        into.push_back({element.key, element.type, std::move(*value)});
    }
    return true;
}

// The caller holds the lock, and has seen that one more element is allowed.
void putElement(ParamList& list, ParamElement& element)
{
    ParamElement* old = list.find(element.key.c_str());
    if (old == nullptr) {
        list.elements.push_back(std::move(element));
        return;
    }
    old->type = element.type;
    std::swap(old->value, element.value);
}

bool hasRoom(size_t elements)
{
    if (elements <= size_t(std::max(kivLimits()->paramsElements, 0)))
        return true;
    recordError(ZV_ERROR_LIMIT, "%zu elements in a parameter list: paramsElements allows %d", elements,
                kivLimits()->paramsElements);
    return false;
}

int mergeLists(ParamList& from, ParamList& into)
{
    std::deque<ParamElement> copies;
    if (!copyElements(from, into.level, copies))
        return ZV_FAILURE;
    std::lock_guard guard(into.lock);
    const auto isNew = [&into](const ParamElement& copy) { return into.find(copy.key.c_str()) == nullptr; };
    if (!hasRoom(into.elements.size() + size_t(std::count_if(copies.begin(), copies.end(), isNew))))
        return ZV_FAILURE;
    for (ParamElement& copy : copies)
        putElement(into, copy);
    return ZV_SUCCESS;
}

int noMemory() { return recordError(ZV_ERROR_MEMORY, "no memory for a parameter list"); }

}  // namespace

NestedParams::~NestedParams()
{
    if (handle_ != nullptr)
        table.retire(handle_, "nested parameter list");
}

TextArray::TextArray(const char* const* values, int n) : texts_(values, values + n) { point(); }

TextArray::TextArray(const TextArray& other) : texts_(other.texts_) { point(); }

void TextArray::point()
{
    pointers_.reserve(texts_.size());
    for (const std::string& text : texts_)
        pointers_.push_back(text.c_str());
}

ParamElement* ParamList::find(const char* key)
{
    for (ParamElement& element : elements) {
        if (element.key == key)
            return &element;
    }
    return nullptr;
}

ParamTable::Pin pinList(const ZVparams* p) { return table.pin(p, "parameter list"); }

bool isKey(const char* key)
{
    if (key != nullptr && *key != '\0')
        return true;
    recordError(ZV_ERROR_ARGUMENT, "a null or empty key");
    return false;
}

ZVparams* copyNested(const ZVparams* from, int level)
{
    ParamTable::Pin source = pinList(from);
    if (!source)
        return nullptr;
    if (level > maxLevel) {
        recordError(ZV_ERROR_ARGUMENT, "parameter lists nested more than %d deep", maxLevel);
        return nullptr;
    }
    auto copy = std::make_unique<ParamList>(level, true);
    return copyElements(*source, level, copy->elements) ? insertList(std::move(copy)) : nullptr;
}

int setElement(ZVparams* p, const char* key, int type, ParamValue value)
{
    ParamTable::Pin list = pinList(p);
    if (!list || !isKey(key))
        return ZV_FAILURE;
    ParamElement element{key, type, std::move(value)};
    std::lock_guard guard(list->lock);
    if (!hasRoom(list->elements.size() + (list->find(key) == nullptr)))
        return ZV_FAILURE;
    putElement(*list, element);
    return ZV_SUCCESS;
}

int paramsCreate(ZVparams** p)
try {
    if (p == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for the new list");
    *p = nullptr;
    *p = insertList(std::make_unique<ParamList>(0, false));
    return *p != nullptr ? ZV_SUCCESS : ZV_FAILURE;
} catch (const std::bad_alloc&) {
    return noMemory();
}

int paramsDestroy(ZVparams* p)
{
    {
        ParamTable::Pin list = pinList(p);
        if (!list)
            return ZV_FAILURE;
        if (list->nested)
            return recordError(ZV_ERROR_STATE, "a nested list goes with the list around it");
    }
    return table.retire(p, "parameter list") ? ZV_SUCCESS : ZV_FAILURE;
}

bool paramsAlive(const ZVparams* p) { return bool(pinList(p)); }

int paramsMerge(const ZVparams* from, ZVparams* into)
try {
    ParamTable::Pin source = pinList(from);
    ParamTable::Pin target = pinList(into);
    if (!source || !target)
        return ZV_FAILURE;
    return from == into ? ZV_SUCCESS : mergeLists(*source, *target);
} catch (const std::bad_alloc&) {
    return noMemory();
}

}  // namespace kiv

using namespace kiv;

// An empty list, which the caller destroys.
extern "C" int zvParamsCreate(ZVparams** p) { return paramsCreate(p); }

// Ends the list and all that lies in it; a call that still reads it finishes first.
extern "C" int zvParamsDestroy(ZVparams* p) { return paramsDestroy(p); }
