// Binder side of the lumx shell tool: finding the service, making one call,
// and the relay session.
#pragma once

#include <aidl/lumx/ILumx.h>

#include <memory>
#include <string>

#include "lumx_cli.h"

namespace lumx::cli {

// "lumx.ILumx/default": the interface descriptor followed by "/default".
std::string ServiceName();

// Looks the service up, polling for up to about two seconds (never longer:
// a missing daemon must not hang the shell). Null with `error` set if the
// service does not appear or is not an ILumx.
std::shared_ptr<aidl::lumx::ILumx> ConnectToService(std::string* error);

// Converts a CommandResult into the tool's Outcome.
Outcome ToOutcome(const aidl::lumx::ILumx::CommandResult& result);
ParamValueArg ToParamValueArg(const aidl::lumx::ILumx::ParamValue& value);
aidl::lumx::ILumx::ParamValue ToParamValue(const ParamValueArg& value);

// Runs one parsed ILumx call and prints its answer; returns the exit code.
int RunCall(const CommandLine& cl);

// Runs `lumx relay`; returns the exit code.
int RunRelay(const RelayOptions& options);

}  // namespace lumx::cli
