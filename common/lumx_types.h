// Short names for the ILumx types used throughout the daemon.
#pragma once

#include <aidl/lumx/ILumx.h>

using CommandResult = ::aidl::lumx::ILumx::CommandResult;
using ParamValue = ::aidl::lumx::ILumx::ParamValue;
using ParameterId = ::aidl::lumx::ILumx::ParameterId;
using UseCase = ::aidl::lumx::ILumx::UseCase;
using AudioPacket = ::aidl::lumx::ILumx::AudioPacket;
using ParamIdElementPair = ::aidl::lumx::ILumx::ParamIdElementPair;
using IReceiveAudioCallback = ::aidl::lumx::ILumx::IReceiveAudioCallback;
