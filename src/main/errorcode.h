// The error codes of the daemon with their fixed texts. 0 is success and has no row.
#pragma once

#include <cstdint>

namespace kelp {

enum ErrorCode : int32_t {
    kSuccess = 0,
    kErrorNormal = 6001,
    kErrorTimeOut = 6002,
    kErrorUnsupportCommand = 6003,
    kErrorOutOfMemory = 6004,
    kErrorInvalidDescriptor = 6005,
    kErrorResponseNull = 6006,
    kErrorRequestNull = 6007,
    kErrorInvalidParameter = 6008,
    kErrorOutOfRange = 6009,
    kErrorInvalidLibrary = 6010,
    kErrorNoData = 6011,
    kErrorMismatch = 6012,
    kErrorOffLine = 6013,
    kErrorUnknown = 6255,
};

// What callers of GetStringByErrCode pass as its base.
inline constexpr int32_t kErrorBase = 6000;

struct ErrorText {
    int32_t code;
    const char* text;
};

// Stations compare these texts: the spelling is part of the interface.
static constexpr ErrorText kErrorTexts[] = {
    {kErrorNormal, "Normal error"},
    {kErrorTimeOut, "Time out"},
    {kErrorUnsupportCommand, "Unsupport command"},
    {kErrorOutOfMemory, "Out of memory"},
    {kErrorInvalidDescriptor, "Invalid descriptor"},
    {kErrorResponseNull, "Response is null"},
    {kErrorRequestNull, "Request is null"},
    {kErrorInvalidParameter, "The parameter is invalid"},
    {kErrorOutOfRange, "Out of range"},
    {kErrorInvalidLibrary, "Invalid library handle"},
    {kErrorNoData, "No Data"},
    {kErrorMismatch, "Request Command Mismatch"},
    {kErrorOffLine, "CP off line"},
    {kErrorUnknown, "Unknow error"},
};

}  // namespace kelp
