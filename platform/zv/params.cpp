// params.cpp - setting, reading and walking parameter lists.
#include <algorithm>
#include <new>

#include "platform/support/error.h"
#include "platform/zv/internal.h"
#include "platform/zv/paramList.h"

namespace kiv {

namespace {

// Sets an element to what `make` returns, which may need memory.
template <class Make> int setMade(ZVparams* p, const char* key, int type, Make make)
try {
    return setElement(p, key, type, make());
} catch (const std::bad_alloc&) {
    return recordError(ZV_ERROR_MEMORY, "no memory for element %s", key != nullptr ? key : "(null)");
}

int setNumber(ZVparams* p, const char* key, int type, long long value)
{
    return setMade(p, key, type, [&] { return ParamValue(value); });
}

template <class T> int setArray(ZVparams* p, const char* key, int type, const T* values, int n)
{
    if (n < 0 || (n > 0 && values == nullptr))
        return recordError(ZV_ERROR_ARGUMENT, "an array of %d values at %p", n, static_cast<const void*>(values));
    return setMade(p, key, type, [&] { return ParamValue(std::vector<T>(values, values + n)); });
}

// What `read` makes of the value of that key and type, under the list's lock.
template <class T, class Result, class Read>
Result readElement(const ZVparams* p, const char* key, int type, Result missing, Read read)
{
    ParamTable::Pin list = pinList(p);
    if (!list || !isKey(key))
        return missing;
    std::lock_guard guard(list->lock);
    const ParamElement* element = list->find(key);
    return element != nullptr && element->type == type ? read(*std::get_if<T>(&element->value)) : missing;
}

template <class T> T readValue(const ZVparams* p, const char* key, int type)
{
    return readElement<T>(p, key, type, T{}, [](const T& value) { return value; });
}

template <class T> const T* readArray(const ZVparams* p, const char* key, int type, int* n)
{
    if (n != nullptr)
        *n = 0;
    return readElement<std::vector<T>>(p, key, type, static_cast<const T*>(nullptr), [n](const std::vector<T>& values) {
        if (n != nullptr)
            *n = int(values.size());
        return values.data();
    });
}

template <class T> int readRange(const ZVparams* p, const char* key, int type, T* low, T* high)
{
    if (low == nullptr || high == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for a range");
    return readElement<std::vector<T>>(p, key, type, ZV_FAILURE, [low, high](const std::vector<T>& ends) {
        *low = ends[0];
        *high = ends[1];
        return ZV_SUCCESS;
    });
}

// The element of that index, null out of range. It never moves, so its key may
// be read without the lock.
const ParamElement* elementAt(ParamList& list, int index)
{
    std::lock_guard guard(list.lock);
    return index >= 0 && size_t(index) < list.elements.size() ? &list.elements[size_t(index)] : nullptr;
}

int scan(const ZVparams* p, ZVparamsScanFn fn, void* arg)
{
    ParamTable::Pin list = pinList(p);
    if (!list)
        return ZV_FAILURE;
    if (fn == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no function to scan with");
    for (int i = 0;; ++i) {
        const ParamElement* element = elementAt(*list, i);
        if (element == nullptr)
            return 0;
        int stop = 0;
        const int result = fn(p, element->key.c_str(), arg, &stop);
        if (result != 0 || stop != 0)
            return result;
    }
}

}  // namespace

int paramsSetInt(ZVparams* p, const char* key, int value) { return setNumber(p, key, ZV_TYPE_INT, value); }

int paramsSetEnum(ZVparams* p, const char* key, int value) { return setNumber(p, key, ZV_TYPE_ENUM, value); }

int paramsSetFloat(ZVparams* p, const char* key, double value)
{
    return setMade(p, key, ZV_TYPE_FLOAT, [&] { return ParamValue(value); });
}

int paramsSetString(ZVparams* p, const char* key, const char* value)
{
    if (value == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "a null string for %s", key != nullptr ? key : "(null)");
    return setMade(p, key, ZV_TYPE_STRING, [&] { return ParamValue(std::string(value)); });
}

int paramsGetInt(const ZVparams* p, const char* key) { return int(readValue<long long>(p, key, ZV_TYPE_INT)); }

int paramsGetEnum(const ZVparams* p, const char* key) { return int(readValue<long long>(p, key, ZV_TYPE_ENUM)); }

double paramsGetFloat(const ZVparams* p, const char* key) { return readValue<double>(p, key, ZV_TYPE_FLOAT); }

const char* paramsGetString(const ZVparams* p, const char* key)
{
    return readElement<std::string>(p, key, ZV_TYPE_STRING, static_cast<const char*>(nullptr),
                                    [](const std::string& text) { return text.c_str(); });
}

int paramsGetType(const ZVparams* p, const char* key)
{
    ParamTable::Pin list = pinList(p);
    if (!list || !isKey(key))
        return ZV_TYPE_NONE;
    std::lock_guard guard(list->lock);
    const ParamElement* element = list->find(key);
    return element != nullptr ? element->type : ZV_TYPE_NONE;
}

static int setNested(ZVparams* p, const char* key, const ZVparams* value)
try {
    ParamTable::Pin list = pinList(p);
    ZVparams* copy = list ? copyNested(value, list->level + 1) : nullptr;
    if (copy == nullptr)
        return ZV_FAILURE;
    NestedParams nested(copy);
    return setElement(p, key, ZV_TYPE_PARAMS, std::move(nested));
} catch (const std::bad_alloc&) {
    return recordError(ZV_ERROR_MEMORY, "no memory for a nested list");
}

static int setTexts(ZVparams* p, const char* key, const char* const* values, int n)
{
    if (n < 0 || (n > 0 && (values == nullptr || std::find(values, values + n, nullptr) != values + n)))
        return recordError(ZV_ERROR_ARGUMENT, "a null string in an array of %d", n);
    return setMade(p, key, ZV_TYPE_STRING_ARRAY, [&] { return ParamValue(TextArray(values, n)); });
}

}  // namespace kiv

using namespace kiv;

// Setters: any thread, may wait for a call that reads the same list.
extern "C" int zvParamsSetInt(ZVparams* p, const char* key, int value) { return paramsSetInt(p, key, value); }
extern "C" int zvParamsSetEnum(ZVparams* p, const char* key, int value) { return paramsSetEnum(p, key, value); }
extern "C" int zvParamsSetFloat(ZVparams* p, const char* key, double value) { return paramsSetFloat(p, key, value); }
extern "C" int zvParamsSetString(ZVparams* p, const char* key, const char* value)
{
    return paramsSetString(p, key, value);
}
extern "C" int zvParamsSetLongLong(ZVparams* p, const char* key, long long value)
{
    return setNumber(p, key, ZV_TYPE_LONG_LONG, value);
}
extern "C" int zvParamsSetFract(ZVparams* p, const char* key, ZVfract value)
{
    return setMade(p, key, ZV_TYPE_FRACTION, [&] { return ParamValue(value); });
}
extern "C" int zvParamsSetParams(ZVparams* p, const char* key, const ZVparams* value)
{
    return setNested(p, key, value);
}
extern "C" int zvParamsSetIntArray(ZVparams* p, const char* key, const int* values, int n)
{
    return setArray(p, key, ZV_TYPE_INT_ARRAY, values, n);
}
extern "C" int zvParamsSetEnumArray(ZVparams* p, const char* key, const int* values, int n)
{
    return setArray(p, key, ZV_TYPE_ENUM_ARRAY, values, n);
}
extern "C" int zvParamsSetFloatArray(ZVparams* p, const char* key, const double* values, int n)
{
    return setArray(p, key, ZV_TYPE_FLOAT_ARRAY, values, n);
}
extern "C" int zvParamsSetStringArray(ZVparams* p, const char* key, const char* const* values, int n)
{
    return setTexts(p, key, values, n);
}
extern "C" int zvParamsSetFractArray(ZVparams* p, const char* key, const ZVfract* values, int n)
{
    return setArray(p, key, ZV_TYPE_FRACTION_ARRAY, values, n);
}
extern "C" int zvParamsSetIntRange(ZVparams* p, const char* key, int low, int high)
{
    const int ends[] = {low, high};
    return setArray(p, key, ZV_TYPE_INT_RANGE, ends, 2);
}
extern "C" int zvParamsSetFloatRange(ZVparams* p, const char* key, double low, double high)
{
    const double ends[] = {low, high};
    return setArray(p, key, ZV_TYPE_FLOAT_RANGE, ends, 2);
}
extern "C" int zvParamsSetFractRange(ZVparams* p, const char* key, ZVfract low, ZVfract high)
{
    const ZVfract ends[] = {low, high};
    return setArray(p, key, ZV_TYPE_FRACTION_RANGE, ends, 2);
}

// Getters: any thread; what they return belongs to the list.
extern "C" int zvParamsGetInt(const ZVparams* p, const char* key) { return paramsGetInt(p, key); }
extern "C" int zvParamsGetEnum(const ZVparams* p, const char* key) { return paramsGetEnum(p, key); }
extern "C" double zvParamsGetFloat(const ZVparams* p, const char* key) { return paramsGetFloat(p, key); }
extern "C" const char* zvParamsGetString(const ZVparams* p, const char* key) { return paramsGetString(p, key); }
extern "C" long long zvParamsGetLongLong(const ZVparams* p, const char* key)
{
    return readValue<long long>(p, key, ZV_TYPE_LONG_LONG);
}
extern "C" ZVfract zvParamsGetFract(const ZVparams* p, const char* key)
{
    return readValue<ZVfract>(p, key, ZV_TYPE_FRACTION);
}
extern "C" ZVparams* zvParamsGetParams(const ZVparams* p, const char* key)
{
    return readElement<NestedParams>(p, key, ZV_TYPE_PARAMS, static_cast<ZVparams*>(nullptr),
                                     [](const NestedParams& nested) { return nested.handle(); });
}
extern "C" const int* zvParamsGetIntArray(const ZVparams* p, const char* key, int* n)
{
    return readArray<int>(p, key, ZV_TYPE_INT_ARRAY, n);
}
extern "C" const int* zvParamsGetEnumArray(const ZVparams* p, const char* key, int* n)
{
    return readArray<int>(p, key, ZV_TYPE_ENUM_ARRAY, n);
}
extern "C" const double* zvParamsGetFloatArray(const ZVparams* p, const char* key, int* n)
{
    return readArray<double>(p, key, ZV_TYPE_FLOAT_ARRAY, n);
}
extern "C" const char* const* zvParamsGetStringArray(const ZVparams* p, const char* key, int* n)
{
    if (n != nullptr)
        *n = 0;
    return readElement<TextArray>(p, key, ZV_TYPE_STRING_ARRAY, static_cast<const char* const*>(nullptr),
                                  [n](const TextArray& texts) {
                                      if (n != nullptr)
                                          *n = int(texts.pointers().size());
                                      return texts.pointers().data();
                                  });
}
extern "C" const ZVfract* zvParamsGetFractArray(const ZVparams* p, const char* key, int* n)
{
    return readArray<ZVfract>(p, key, ZV_TYPE_FRACTION_ARRAY, n);
}
extern "C" int zvParamsGetIntRange(const ZVparams* p, const char* key, int* low, int* high)
{
    return readRange(p, key, ZV_TYPE_INT_RANGE, low, high);
}
extern "C" int zvParamsGetFloatRange(const ZVparams* p, const char* key, double* low, double* high)
{
    return readRange(p, key, ZV_TYPE_FLOAT_RANGE, low, high);
}
extern "C" int zvParamsGetFractRange(const ZVparams* p, const char* key, ZVfract* low, ZVfract* high)
{
    return readRange(p, key, ZV_TYPE_FRACTION_RANGE, low, high);
}

extern "C" int zvParamsGetNumElems(const ZVparams* p)
{
    ParamTable::Pin list = pinList(p);
    if (!list)
        return 0;
    std::lock_guard guard(list->lock);
    return int(list->elements.size());
}
extern "C" const char* zvParamsGetElem(const ZVparams* p, int index)
{
    ParamTable::Pin list = pinList(p);
    const ParamElement* element = list ? elementAt(*list, index) : nullptr;
    return element != nullptr ? element->key.c_str() : nullptr;
}
extern "C" int zvParamsGetElemType(const ZVparams* p, int index)
{
    ParamTable::Pin list = pinList(p);
    if (!list)
        return ZV_TYPE_NONE;
    std::lock_guard guard(list->lock);
    return index >= 0 && size_t(index) < list->elements.size() ? list->elements[size_t(index)].type : ZV_TYPE_NONE;
}
extern "C" int zvParamsGetType(const ZVparams* p, const char* key) { return paramsGetType(p, key); }

// No lock is held while fn runs: it may read, set and even destroy the list.
extern "C" int zvParamsScan(const ZVparams* p, ZVparamsScanFn fn, void* arg) { return scan(p, fn, arg); }
