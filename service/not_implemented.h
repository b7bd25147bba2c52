// Answer of an operation whose behaviour has not landed yet.
#pragma once

#include <android/binder_auto_utils.h>

#include "common/lumx_types.h"
#include "common/lumx_utils.h"

inline ::ndk::ScopedAStatus NotImplemented(const char* op, CommandResult* result) {
  result->status = CommandResult::Status::ERROR;
  result->strList.push_back("not implemented");
  print_aidl_return(op, result);
  return ::ndk::ScopedAStatus::ok();
}
