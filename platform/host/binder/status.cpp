// AStatus: (exception, error code, message).
#include <android/binder_status.h>
#include <string.h>

#include <string>

#include "internal.h"

namespace {

bool KnownException(binder_exception_t e) {
  return (e <= EX_NONE && e >= EX_PARCELABLE) || e == EX_TRANSACTION_FAILED;
}

bool KnownStatus(binder_status_t s) {
  switch (s) {
    case STATUS_OK: case STATUS_UNKNOWN_ERROR: case STATUS_NO_MEMORY:
    case STATUS_INVALID_OPERATION: case STATUS_BAD_VALUE: case STATUS_BAD_TYPE:
    case STATUS_NAME_NOT_FOUND: case STATUS_PERMISSION_DENIED: case STATUS_NO_INIT:
    case STATUS_ALREADY_EXISTS: case STATUS_DEAD_OBJECT: case STATUS_FAILED_TRANSACTION:
    case STATUS_BAD_INDEX: case STATUS_NOT_ENOUGH_DATA: case STATUS_WOULD_BLOCK:
    case STATUS_TIMED_OUT: case STATUS_UNKNOWN_TRANSACTION: case STATUS_FDS_NOT_ALLOWED:
    case STATUS_UNEXPECTED_NULL:
      return true;
    default:
      return false;
  }
}

const char* ExceptionName(binder_exception_t e) {
  switch (e) {
    case EX_NONE: return "EX_NONE";
    case EX_SECURITY: return "EX_SECURITY";
    case EX_BAD_PARCELABLE: return "EX_BAD_PARCELABLE";
    case EX_ILLEGAL_ARGUMENT: return "EX_ILLEGAL_ARGUMENT";
    case EX_NULL_POINTER: return "EX_NULL_POINTER";
    case EX_ILLEGAL_STATE: return "EX_ILLEGAL_STATE";
    case EX_NETWORK_MAIN_THREAD: return "EX_NETWORK_MAIN_THREAD";
    case EX_UNSUPPORTED_OPERATION: return "EX_UNSUPPORTED_OPERATION";
    case EX_SERVICE_SPECIFIC: return "EX_SERVICE_SPECIFIC";
    case EX_PARCELABLE: return "EX_PARCELABLE";
    case EX_TRANSACTION_FAILED: return "EX_TRANSACTION_FAILED";
    default: return "UNKNOWN";
  }
}

const char* StatusName(binder_status_t s) {
  switch (s) {
    case STATUS_OK: return "OK";
    case STATUS_NO_MEMORY: return "NO_MEMORY";
    case STATUS_INVALID_OPERATION: return "INVALID_OPERATION";
    case STATUS_BAD_VALUE: return "BAD_VALUE";
    case STATUS_BAD_TYPE: return "BAD_TYPE";
    case STATUS_NAME_NOT_FOUND: return "NAME_NOT_FOUND";
    case STATUS_PERMISSION_DENIED: return "PERMISSION_DENIED";
    case STATUS_NO_INIT: return "NO_INIT";
    case STATUS_ALREADY_EXISTS: return "ALREADY_EXISTS";
    case STATUS_DEAD_OBJECT: return "DEAD_OBJECT";
    case STATUS_FAILED_TRANSACTION: return "FAILED_TRANSACTION";
    case STATUS_BAD_INDEX: return "BAD_INDEX";
    case STATUS_NOT_ENOUGH_DATA: return "NOT_ENOUGH_DATA";
    case STATUS_WOULD_BLOCK: return "WOULD_BLOCK";
    case STATUS_TIMED_OUT: return "TIMED_OUT";
    case STATUS_UNKNOWN_TRANSACTION: return "UNKNOWN_TRANSACTION";
    case STATUS_FDS_NOT_ALLOWED: return "FDS_NOT_ALLOWED";
    case STATUS_UNEXPECTED_NULL: return "UNEXPECTED_NULL";
    default: return "UNKNOWN_ERROR";
  }
}

}  // namespace

namespace lumx_binder {

AStatus* NewStatus(binder_exception_t ex, int32_t error, const char* message) {
  AStatus* s = new AStatus();
  s->exception = ex;
  s->error = error;
  if (message != nullptr) s->message = message;
  return s;
}

}  // namespace lumx_binder

using lumx_binder::NewStatus;

extern "C" {

AStatus* AStatus_newOk(void) { return NewStatus(EX_NONE, 0, nullptr); }

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
  if (!KnownException(exception)) exception = EX_TRANSACTION_FAILED;
  if (exception == EX_NONE) return AStatus_newOk();
  if (exception == EX_TRANSACTION_FAILED) {
    return NewStatus(EX_TRANSACTION_FAILED, STATUS_FAILED_TRANSACTION, message);
  }
  return NewStatus(exception, 0, message);
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
  return AStatus_fromExceptionCodeWithMessage(exception, nullptr);
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
  return NewStatus(EX_SERVICE_SPECIFIC, serviceSpecific, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
  return AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, nullptr);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
  if (status == STATUS_OK) return AStatus_newOk();
  if (!KnownStatus(status)) status = STATUS_UNKNOWN_ERROR;
  return NewStatus(EX_TRANSACTION_FAILED, status, nullptr);
}

bool AStatus_isOk(const AStatus* status) {
  return status != nullptr && status->exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
  return status == nullptr ? EX_NONE : status->exception;
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
  if (status == nullptr || status->exception != EX_SERVICE_SPECIFIC) return 0;
  return status->error;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
  if (status == nullptr || status->exception != EX_TRANSACTION_FAILED) return STATUS_OK;
  return status->error;
}

const char* AStatus_getMessage(const AStatus* status) {
  return status == nullptr ? "" : status->message.c_str();
}

const char* AStatus_getDescription(const AStatus* status) {
  std::string d;
  if (status == nullptr || status->exception == EX_NONE) {
    d = "No error";
  } else {
    d = "Status(" + std::to_string(status->exception) + ", " + ExceptionName(status->exception) +
        "): '";
    if (status->exception == EX_SERVICE_SPECIFIC) {
      d += std::to_string(status->error) + ": ";
    } else if (status->exception == EX_TRANSACTION_FAILED) {
      d += std::string(StatusName(status->error)) + ": ";
    }
    d += status->message + "'";
  }
  return strdup(d.c_str());
}

void AStatus_deleteDescription(const char* description) {
  free(const_cast<char*>(description));
}

void AStatus_delete(AStatus* status) { delete status; }

}  // extern "C"
