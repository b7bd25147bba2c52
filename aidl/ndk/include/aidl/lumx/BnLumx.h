/*
 * Server stub base of lumx.ILumx (NDK backend shape). The service derives
 * from BnLumx; getInterfaceVersion/getInterfaceHash are answered here.
 */
#pragma once

#include "aidl/lumx/ILumx.h"

#include <android/binder_ibinder.h>
#include <cassert>

namespace aidl {
namespace lumx {
class BnLumx : public ::ndk::BnCInterface<ILumx> {
public:
  BnLumx();
  virtual ~BnLumx();
  ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) final;
  ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) final;
protected:
  ::ndk::SpAIBinder createBinder() override;
private:
};
class ILumxDelegator : public BnLumx {
public:
  explicit ILumxDelegator(const std::shared_ptr<ILumx> &impl) : _impl(impl) {
     int32_t _impl_ver = 0;
     if (!impl->getInterfaceVersion(&_impl_ver).isOk()) {;
        ::aidl::lumx::internal::assert2(__FILE__, __LINE__, __PRETTY_FUNCTION__, "Delegator failed to get version of the implementation.");
     }
     if (_impl_ver != ILumx::version) {
        ::aidl::lumx::internal::assert2(__FILE__, __LINE__, __PRETTY_FUNCTION__, "Mismatched versions of delegator and implementation is not allowed.");
     }
  }

  ::ndk::ScopedAStatus Ping() override {
    return _impl->Ping();
  }
  ::ndk::ScopedAStatus ShowGraph(::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ShowGraph(_aidl_return);
  }
  ::ndk::ScopedAStatus ListProcessors(::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ListProcessors(_aidl_return);
  }
  ::ndk::ScopedAStatus ListSupportedProcessors(::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ListSupportedProcessors(_aidl_return);
  }
  ::ndk::ScopedAStatus NewProcessor(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->NewProcessor(in_processorId, _aidl_return);
  }
  ::ndk::ScopedAStatus NewProcessorWithType(int32_t in_processorId, int32_t in_processorType, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->NewProcessorWithType(in_processorId, in_processorType, _aidl_return);
  }
  ::ndk::ScopedAStatus DeleteProcessor(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->DeleteProcessor(in_processorId, _aidl_return);
  }
  ::ndk::ScopedAStatus ListSupportedUseCases(::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ListSupportedUseCases(_aidl_return);
  }
  ::ndk::ScopedAStatus Enable(const std::string& in_useCaseName, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->Enable(in_useCaseName, in_enable, _aidl_return);
  }
  ::ndk::ScopedAStatus IsEnabled(const std::string& in_useCaseName, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->IsEnabled(in_useCaseName, _aidl_return);
  }
  ::ndk::ScopedAStatus ProcessorInfo(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ProcessorInfo(in_processorId, _aidl_return);
  }
  ::ndk::ScopedAStatus ProcessorEnable(int32_t in_processorId, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ProcessorEnable(in_processorId, in_enable, _aidl_return);
  }
  ::ndk::ScopedAStatus ProcessorIsEnabled(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ProcessorIsEnabled(in_processorId, _aidl_return);
  }
  ::ndk::ScopedAStatus TapList(int32_t in_core, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->TapList(in_core, _aidl_return);
  }
  ::ndk::ScopedAStatus TapInfo(int32_t in_core, int32_t in_tap, int32_t in_index, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->TapInfo(in_core, in_tap, in_index, _aidl_return);
  }
  ::ndk::ScopedAStatus TapEnable(int32_t in_core, int32_t in_tap, int32_t in_index, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->TapEnable(in_core, in_tap, in_index, in_enable, _aidl_return);
  }
  ::ndk::ScopedAStatus TapSetBlockLength(int32_t in_core, int32_t in_tap, int32_t in_index, int32_t in_blockLength, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->TapSetBlockLength(in_core, in_tap, in_index, in_blockLength, _aidl_return);
  }
  ::ndk::ScopedAStatus ListTapOutBuffers(::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ListTapOutBuffers(_aidl_return);
  }
  ::ndk::ScopedAStatus ListInjectBuffers(::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ListInjectBuffers(_aidl_return);
  }
  ::ndk::ScopedAStatus Connect(int32_t in_processorId, int32_t in_tapOutBuffer, int32_t in_injectBuffer, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->Connect(in_processorId, in_tapOutBuffer, in_injectBuffer, _aidl_return);
  }
  ::ndk::ScopedAStatus ConnectTap(int32_t in_core, int32_t in_tap, int32_t in_index, int32_t in_tapOutBuffer, int32_t in_injectBuffer, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ConnectTap(in_core, in_tap, in_index, in_tapOutBuffer, in_injectBuffer, _aidl_return);
  }
  ::ndk::ScopedAStatus StartIo(int32_t in_bufferId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->StartIo(in_bufferId, _aidl_return);
  }
  ::ndk::ScopedAStatus StopIo(int32_t in_bufferId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->StopIo(in_bufferId, _aidl_return);
  }
  ::ndk::ScopedAStatus Debug(const std::vector<std::string>& in_args, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->Debug(in_args, _aidl_return);
  }
  ::ndk::ScopedAStatus EnableUseCase(::aidl::lumx::ILumx::UseCase in_useCase, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->EnableUseCase(in_useCase, in_enable, _aidl_return);
  }
  ::ndk::ScopedAStatus IsUseCaseEnabled(::aidl::lumx::ILumx::UseCase in_useCase, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->IsUseCaseEnabled(in_useCase, _aidl_return);
  }
  ::ndk::ScopedAStatus SetParameter(int32_t in_processorId, ::aidl::lumx::ILumx::ParameterId in_paramId, int32_t in_element, const ::aidl::lumx::ILumx::ParamValue& in_value, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->SetParameter(in_processorId, in_paramId, in_element, in_value, _aidl_return);
  }
  ::ndk::ScopedAStatus GetParameter(int32_t in_processorId, ::aidl::lumx::ILumx::ParameterId in_paramId, int32_t in_element, ::aidl::lumx::ILumx::ParamValue* out_value, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->GetParameter(in_processorId, in_paramId, in_element, out_value, _aidl_return);
  }
  ::ndk::ScopedAStatus SetParameterBulk(int32_t in_processorId, const std::vector<::aidl::lumx::ILumx::ParamIdElementPair>& in_params, const std::vector<::aidl::lumx::ILumx::ParamValue>& in_values, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->SetParameterBulk(in_processorId, in_params, in_values, _aidl_return);
  }
  ::ndk::ScopedAStatus GetParameterBulk(int32_t in_processorId, const std::vector<::aidl::lumx::ILumx::ParamIdElementPair>& in_params, ::aidl::lumx::ILumx::CommandResult* out_result, std::vector<::aidl::lumx::ILumx::ParamValue>* _aidl_return) override {
    return _impl->GetParameterBulk(in_processorId, in_params, out_result, _aidl_return);
  }
  ::ndk::ScopedAStatus ListParameters(::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->ListParameters(_aidl_return);
  }
  ::ndk::ScopedAStatus SendAudio(int32_t in_processorId, const ::aidl::lumx::ILumx::AudioPacket& in_packet, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->SendAudio(in_processorId, in_packet, _aidl_return);
  }
  ::ndk::ScopedAStatus RegisterReceiveAudioCallback(int32_t in_processorId, const std::shared_ptr<::aidl::lumx::ILumx::IReceiveAudioCallback>& in_callback, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override {
    return _impl->RegisterReceiveAudioCallback(in_processorId, in_callback, _aidl_return);
  }
protected:
private:
  std::shared_ptr<ILumx> _impl;
};

}  // namespace lumx
}  // namespace aidl
