// kivUtilParams.cpp - what a parameter list contains, in words; see kivUtil.h.
#include "core/kivUtil.h"

namespace {

template <class T> void printArray(const T* values, int n, const char* format)
{
    for (int i = 0; i < n; ++i)
        kivPrintOut(format, values[i]);
}

void printFraction(ZVfract value, const char* end) { kivPrintOut("%d/%d%s", value.numerator, value.denominator, end); }

void printNested(const ZVparams* params, const char* name)
{
    kivPrintOut("\n**\n");
    printZVParams(zvParamsGetParams(params, name));
    kivPrintOut("**\n");
}

void printArrayElement(const ZVparams* params, const char* name, int type)
{
    int n = 0;
    if (type == ZV_TYPE_ENUM_ARRAY) {
        const int* values = zvParamsGetEnumArray(params, name, &n);
        printArray(values, n, "%d ");
    } else if (type == ZV_TYPE_INT_ARRAY) {
        const int* values = zvParamsGetIntArray(params, name, &n);
        printArray(values, n, "%d ");
    } else if (type == ZV_TYPE_STRING_ARRAY) {
        const char* const* values = zvParamsGetStringArray(params, name, &n);
        printArray(values, n, "%s ");
    } else if (type == ZV_TYPE_FLOAT_ARRAY) {
        const double* values = zvParamsGetFloatArray(params, name, &n);
        printArray(values, n, "%f ");
    } else {
        const ZVfract* values = zvParamsGetFractArray(params, name, &n);
        for (int i = 0; i < n; ++i)
            printFraction(values[i], " ");
    }
}

void printRangeElement(const ZVparams* params, const char* name, int type)
{
    if (type == ZV_TYPE_INT_RANGE) {
        int low = 0, high = 0;
        zvParamsGetIntRange(params, name, &low, &high);
        kivPrintOut("%d ... %d", low, high);
    } else if (type == ZV_TYPE_FLOAT_RANGE) {
        double low = 0, high = 0;
        zvParamsGetFloatRange(params, name, &low, &high);
        kivPrintOut("%f ... %f", low, high);
    } else {
        ZVfract low = {}, high = {};
        zvParamsGetFractRange(params, name, &low, &high);
        printFraction(low, " ... ");
        printFraction(high, "");
    }
}

void printElement(const ZVparams* params, const char* name, int type)
{
    switch (type) {
    case ZV_TYPE_ENUM:
        return kivPrintOut("%d", zvParamsGetEnum(params, name));
    case ZV_TYPE_INT:
        return kivPrintOut("%d", zvParamsGetInt(params, name));
    case ZV_TYPE_STRING:
        return kivPrintOut("%s", zvParamsGetString(params, name));
    case ZV_TYPE_FLOAT:
        return kivPrintOut("%f", zvParamsGetFloat(params, name));
    case ZV_TYPE_FRACTION:
        return printFraction(zvParamsGetFract(params, name), "");
    case ZV_TYPE_PARAMS:
        return printNested(params, name);
    case ZV_TYPE_ENUM_ARRAY:
    case ZV_TYPE_INT_ARRAY:
    case ZV_TYPE_STRING_ARRAY:
    case ZV_TYPE_FLOAT_ARRAY:
    case ZV_TYPE_FRACTION_ARRAY:
        return printArrayElement(params, name, type);
    case ZV_TYPE_INT_RANGE:
    case ZV_TYPE_FLOAT_RANGE:
    case ZV_TYPE_FRACTION_RANGE:
        return printRangeElement(params, name, type);
    default:
        return kivPrintOut("UNKNOWN TYPE");
    }
}

}  // namespace

void printZVParams(const ZVparams* params)
{
    kivPrintError("Contents of Parameter/Value List:\n");
    zvParamsScan(params, PrintParam, nullptr);
    kivPrintError("--------------------------------\n");
}

void kivTraceZVParams(const ZVparams* params)
{
    if (getTrace())
        printZVParams(params);
}

int PrintParam(const ZVparams* params, const char* paramName, void*, int*)
{
    const int type = zvParamsGetType(params, paramName);
    switch (type) {
    case ZV_TYPE_INT:
        kivPrintError("%d\t(int)", zvParamsGetInt(params, paramName));
        break;
    case ZV_TYPE_LONG_LONG:
        kivPrintError("%lld\t(longlong)", zvParamsGetLongLong(params, paramName));
        break;
    case ZV_TYPE_FLOAT:
        kivPrintError("%3.3f\t(float)", zvParamsGetFloat(params, paramName));
        break;
    case ZV_TYPE_STRING:
        kivPrintError("%s\t(string)", zvParamsGetString(params, paramName));
        break;
    case ZV_TYPE_ENUM:
        kivPrintError("%d\t(enum)", zvParamsGetEnum(params, paramName));
        break;
    default:
        kivPrintError("type\t(%d)", type);
        break;
    }
    kivPrintError("\t%s\n", paramName);
    return 0;
}

void oldPrintZVParams(const ZVparams* params)
{
    const int n = zvParamsGetNumElems(params);
    kivPrintError(" inside printZVParams:%d", n);
    for (int i = 0; i < n; ++i) {
        kivPrintError(".");
        const char* name = zvParamsGetElem(params, i);
        const int type = zvParamsGetElemType(params, i);
        kivPrintOut("%8s: ", name);
        printElement(params, name, type);
        kivPrintOut("\n");
    }
    kivPrintError("\n");
}
