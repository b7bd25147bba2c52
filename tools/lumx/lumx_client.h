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

// Looks the service up, polling for up to `timeoutMs` (never longer: a
// missing daemon must not hang the shell). Null with `error` set if the
// service does not appear or is not an ILumx.
std::shared_ptr<aidl::lumx::ILumx> ConnectToService(int timeoutMs, std::string* error);
// True when a lookup was left running past its time-out: the process must
// then end with _exit, not run its static destructors under that thread.
bool LookupAbandoned();

// Reports a failure: one line on stderr and, with --json, the error object
// on stdout. Returns `exitCode`.
int ReportFailure(const CommandLine& cl, const Operation* op, const std::string& error, int exitCode);

// Converts a CommandResult into the tool's Outcome.
Outcome ToOutcome(const aidl::lumx::ILumx::CommandResult& result);
ParamValueArg ToParamValueArg(const aidl::lumx::ILumx::ParamValue& value);
aidl::lumx::ILumx::ParamValue ToParamValue(const ParamValueArg& value);

// Runs one parsed ILumx call and prints its answer; returns the exit code.
int RunCall(const CommandLine& cl);

// Runs `lumx relay`; returns the exit code.
int RunRelay(const RelayOptions& options);

// The tool's own commands; each returns the exit code.
int RunDump(const CommandLine& cl);
int RunTop(const CommandLine& cl);
int RunGraph(const CommandLine& cl);
int RunVersion(const CommandLine& cl);

}  // namespace lumx::cli
