/*
 * Client proxy of lumx.ILumx (NDK backend shape). Obtained through
 * ILumx::fromBinder(); the interface version and hash are asked once and
 * then cached.
 */
#pragma once

#include "aidl/lumx/ILumx.h"

#include <android/binder_ibinder.h>

namespace aidl {
namespace lumx {
class BpLumx : public ::ndk::BpCInterface<ILumx> {
public:
  explicit BpLumx(const ::ndk::SpAIBinder& binder);
  virtual ~BpLumx();

  ::ndk::ScopedAStatus Ping() override;
  ::ndk::ScopedAStatus ShowGraph(::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus ListProcessors(::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus ListSupportedProcessors(::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus NewProcessor(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus NewProcessorWithType(int32_t in_processorId, int32_t in_processorType, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus DeleteProcessor(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus ListSupportedUseCases(::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus Enable(const std::string& in_useCaseName, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus IsEnabled(const std::string& in_useCaseName, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus ProcessorInfo(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus ProcessorEnable(int32_t in_processorId, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus ProcessorIsEnabled(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus TapList(int32_t in_core, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus TapInfo(int32_t in_core, int32_t in_tap, int32_t in_index, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus TapEnable(int32_t in_core, int32_t in_tap, int32_t in_index, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus TapSetBlockLength(int32_t in_core, int32_t in_tap, int32_t in_index, int32_t in_blockLength, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus ListTapOutBuffers(::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus ListInjectBuffers(::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus Connect(int32_t in_processorId, int32_t in_tapOutBuffer, int32_t in_injectBuffer, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus ConnectTap(int32_t in_core, int32_t in_tap, int32_t in_index, int32_t in_tapOutBuffer, int32_t in_injectBuffer, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus StartIo(int32_t in_bufferId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus StopIo(int32_t in_bufferId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus Debug(const std::vector<std::string>& in_args, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus EnableUseCase(::aidl::lumx::ILumx::UseCase in_useCase, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus IsUseCaseEnabled(::aidl::lumx::ILumx::UseCase in_useCase, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus SetParameter(int32_t in_processorId, ::aidl::lumx::ILumx::ParameterId in_paramId, int32_t in_element, const ::aidl::lumx::ILumx::ParamValue& in_value, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus GetParameter(int32_t in_processorId, ::aidl::lumx::ILumx::ParameterId in_paramId, int32_t in_element, ::aidl::lumx::ILumx::ParamValue* out_value, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus SetParameterBulk(int32_t in_processorId, const std::vector<::aidl::lumx::ILumx::ParamIdElementPair>& in_params, const std::vector<::aidl::lumx::ILumx::ParamValue>& in_values, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus GetParameterBulk(int32_t in_processorId, const std::vector<::aidl::lumx::ILumx::ParamIdElementPair>& in_params, ::aidl::lumx::ILumx::CommandResult* out_result, std::vector<::aidl::lumx::ILumx::ParamValue>* _aidl_return) override;
  ::ndk::ScopedAStatus ListParameters(::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus SendAudio(int32_t in_processorId, const ::aidl::lumx::ILumx::AudioPacket& in_packet, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus RegisterReceiveAudioCallback(int32_t in_processorId, const std::shared_ptr<::aidl::lumx::ILumx::IReceiveAudioCallback>& in_callback, ::aidl::lumx::ILumx::CommandResult* _aidl_return) override;
  ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) override;
  ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) override;
  int32_t _aidl_cached_version = -1;
  std::string _aidl_cached_hash = "-1";
  std::mutex _aidl_cached_hash_mutex;
};
}  // namespace lumx
}  // namespace aidl
