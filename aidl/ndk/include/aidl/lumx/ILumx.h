/*
 * NDK binding of lumx/ILumx.aidl (interface version 2), kept by hand in the
 * exact shape the AIDL compiler's NDK backend emits, so the daemon, its tools
 * and its tests compile unchanged against the generated library on Android
 * and against this one on the host. Edit only together with the .aidl; the
 * aidl tests compare the two.
 */
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#include <android/binder_interface_utils.h>
#include <android/binder_parcelable_utils.h>
#include <android/binder_to_string.h>
#include <array>
#include <android/binder_enums.h>
#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#ifdef BINDER_STABILITY_SUPPORT
#include <android/binder_stability.h>
#endif  // BINDER_STABILITY_SUPPORT

namespace aidl {
namespace lumx {
namespace internal {
// Bionic's __assert2: the union accessor's wrong-tag check. Off-device the
// generator maps __assert2 to a no-op, which would turn a wrong-tag read into
// an out-of-range variant access; the daemon relies on it ending the process
// with bionic's message, so the host binding keeps that behaviour itself.
[[noreturn]] inline void assert2(const char* file, int line, const char* function, const char* message) {
  fprintf(stderr, "%s:%d: %s: assertion \"%s\" failed\n", file, line, function, message);
  fflush(stderr);
  abort();
}
}  // namespace internal

class ILumxDelegator;

class ILumx : public ::ndk::ICInterface {
public:
  typedef ILumxDelegator DefaultDelegator;
  static const char* descriptor;
  ILumx();
  virtual ~ILumx();

  class CommandResult {
  public:
    typedef std::false_type fixed_size;
    static const char* descriptor;

    enum class Status : int8_t {
      OK = 0,
      ERROR = 1,
      INVALID_PROCESSOR = 2,
      INVALID_PARAMETER = 3,
      INVALID_VALUE = 4,
      INVALID_ELEMENT = 5,
      READ_ONLY = 6,
    };

    ::aidl::lumx::ILumx::CommandResult::Status status = ::aidl::lumx::ILumx::CommandResult::Status::OK;
    float value = 0.000000f;
    std::vector<std::string> strList;

    binder_status_t readFromParcel(const AParcel* parcel);
    binder_status_t writeToParcel(AParcel* parcel) const;

    inline bool operator==(const CommandResult& _rhs) const {
      return std::tie(status, value, strList) == std::tie(_rhs.status, _rhs.value, _rhs.strList);
    }
    inline bool operator<(const CommandResult& _rhs) const {
      return std::tie(status, value, strList) < std::tie(_rhs.status, _rhs.value, _rhs.strList);
    }
    inline bool operator!=(const CommandResult& _rhs) const {
      return !(*this == _rhs);
    }
    inline bool operator>(const CommandResult& _rhs) const {
      return _rhs < *this;
    }
    inline bool operator>=(const CommandResult& _rhs) const {
      return !(*this < _rhs);
    }
    inline bool operator<=(const CommandResult& _rhs) const {
      return !(_rhs < *this);
    }

    static const ::ndk::parcelable_stability_t _aidl_stability = ::ndk::STABILITY_LOCAL;
    inline std::string toString() const {
      std::ostringstream _aidl_os;
      _aidl_os << "CommandResult{";
      _aidl_os << "status: " << ::android::internal::ToString(status);
      _aidl_os << ", value: " << ::android::internal::ToString(value);
      _aidl_os << ", strList: " << ::android::internal::ToString(strList);
      _aidl_os << "}";
      return _aidl_os.str();
    }
  };
  class ParamValue {
  public:
    typedef std::false_type fixed_size;
    static const char* descriptor;

    enum class Tag : int32_t {
      i = 0,
      f = 1,
    };

    // Expose tag symbols for legacy code
    static const inline Tag i = Tag::i;
    static const inline Tag f = Tag::f;

    template<typename _Tp>
    static constexpr bool _not_self = !std::is_same_v<std::remove_cv_t<std::remove_reference_t<_Tp>>, ParamValue>;

    ParamValue() : _value(std::in_place_index<static_cast<size_t>(i)>, int32_t(0)) { }

    template <typename _Tp, typename = std::enable_if_t<
        _not_self<_Tp> &&
        std::is_constructible_v<std::variant<int32_t, float>, _Tp>
      >>
    // NOLINTNEXTLINE(google-explicit-constructor)
    constexpr ParamValue(_Tp&& _arg)
        : _value(std::forward<_Tp>(_arg)) {}

    template <size_t _Np, typename... _Tp>
    constexpr explicit ParamValue(std::in_place_index_t<_Np>, _Tp&&... _args)
        : _value(std::in_place_index<_Np>, std::forward<_Tp>(_args)...) {}

    template <Tag _tag, typename... _Tp>
    static ParamValue make(_Tp&&... _args) {
      return ParamValue(std::in_place_index<static_cast<size_t>(_tag)>, std::forward<_Tp>(_args)...);
    }

    template <Tag _tag, typename _Tp, typename... _Up>
    static ParamValue make(std::initializer_list<_Tp> _il, _Up&&... _args) {
      return ParamValue(std::in_place_index<static_cast<size_t>(_tag)>, std::move(_il), std::forward<_Up>(_args)...);
    }

    Tag getTag() const {
      return static_cast<Tag>(_value.index());
    }

    template <Tag _tag>
    const auto& get() const {
      if (getTag() != _tag) { ::aidl::lumx::internal::assert2(__FILE__, __LINE__, __PRETTY_FUNCTION__, "bad access: a wrong tag"); }
      return std::get<static_cast<size_t>(_tag)>(_value);
    }

    template <Tag _tag>
    auto& get() {
      if (getTag() != _tag) { ::aidl::lumx::internal::assert2(__FILE__, __LINE__, __PRETTY_FUNCTION__, "bad access: a wrong tag"); }
      return std::get<static_cast<size_t>(_tag)>(_value);
    }

    template <Tag _tag, typename... _Tp>
    void set(_Tp&&... _args) {
      _value.emplace<static_cast<size_t>(_tag)>(std::forward<_Tp>(_args)...);
    }

    binder_status_t readFromParcel(const AParcel* _parcel);
    binder_status_t writeToParcel(AParcel* _parcel) const;

    inline bool operator==(const ParamValue& _rhs) const {
      return _value == _rhs._value;
    }
    inline bool operator<(const ParamValue& _rhs) const {
      return _value < _rhs._value;
    }
    inline bool operator!=(const ParamValue& _rhs) const {
      return !(*this == _rhs);
    }
    inline bool operator>(const ParamValue& _rhs) const {
      return _rhs < *this;
    }
    inline bool operator>=(const ParamValue& _rhs) const {
      return !(*this < _rhs);
    }
    inline bool operator<=(const ParamValue& _rhs) const {
      return !(_rhs < *this);
    }

    static const ::ndk::parcelable_stability_t _aidl_stability = ::ndk::STABILITY_LOCAL;
    inline std::string toString() const {
      std::ostringstream os;
      os << "ParamValue{";
      switch (getTag()) {
      case i: os << "i: " << ::android::internal::ToString(get<i>()); break;
      case f: os << "f: " << ::android::internal::ToString(get<f>()); break;
      }
      os << "}";
      return os.str();
    }
  private:
    std::variant<int32_t, float> _value;
  };
  enum class ParameterId : int32_t {
    UNSPECIFIED = -1,
    VERSION = 0,
    PASSTHROUGH_MODE = 1,
    TEST_MODE = 2,
    BLOCK_LENGTH = 3,
    AUDIO_FORMAT = 4,
  };

  enum class UseCase : int8_t {
    UNSPECIFIED = -1,
    HOTWORDAEC = 0,
    MIC_IN = 1,
    SPEAKER_OUT = 2,
    AREL_TELE = 3,
  };

  class AudioPacket {
  public:
    typedef std::false_type fixed_size;
    static const char* descriptor;

    int32_t processor_id = 0;
    std::vector<uint8_t> data;
    int8_t sampleRate = 0;
    int8_t format = 0;
    int8_t bitsPerSample = 0;
    int8_t numChannels = 0;
    int8_t reserved = 0;

    binder_status_t readFromParcel(const AParcel* parcel);
    binder_status_t writeToParcel(AParcel* parcel) const;

    inline bool operator==(const AudioPacket& _rhs) const {
      return std::tie(processor_id, data, sampleRate, format, bitsPerSample, numChannels, reserved) == std::tie(_rhs.processor_id, _rhs.data, _rhs.sampleRate, _rhs.format, _rhs.bitsPerSample, _rhs.numChannels, _rhs.reserved);
    }
    inline bool operator<(const AudioPacket& _rhs) const {
      return std::tie(processor_id, data, sampleRate, format, bitsPerSample, numChannels, reserved) < std::tie(_rhs.processor_id, _rhs.data, _rhs.sampleRate, _rhs.format, _rhs.bitsPerSample, _rhs.numChannels, _rhs.reserved);
    }
    inline bool operator!=(const AudioPacket& _rhs) const {
      return !(*this == _rhs);
    }
    inline bool operator>(const AudioPacket& _rhs) const {
      return _rhs < *this;
    }
    inline bool operator>=(const AudioPacket& _rhs) const {
      return !(*this < _rhs);
    }
    inline bool operator<=(const AudioPacket& _rhs) const {
      return !(_rhs < *this);
    }

    static const ::ndk::parcelable_stability_t _aidl_stability = ::ndk::STABILITY_LOCAL;
    inline std::string toString() const {
      std::ostringstream _aidl_os;
      _aidl_os << "AudioPacket{";
      _aidl_os << "processor_id: " << ::android::internal::ToString(processor_id);
      _aidl_os << ", data: " << ::android::internal::ToString(data);
      _aidl_os << ", sampleRate: " << ::android::internal::ToString(sampleRate);
      _aidl_os << ", format: " << ::android::internal::ToString(format);
      _aidl_os << ", bitsPerSample: " << ::android::internal::ToString(bitsPerSample);
      _aidl_os << ", numChannels: " << ::android::internal::ToString(numChannels);
      _aidl_os << ", reserved: " << ::android::internal::ToString(reserved);
      _aidl_os << "}";
      return _aidl_os.str();
    }
  };
  class ParamIdElementPair {
  public:
    typedef std::false_type fixed_size;
    static const char* descriptor;

    ::aidl::lumx::ILumx::ParameterId paramId = ::aidl::lumx::ILumx::ParameterId::UNSPECIFIED;
    int32_t element = 0;

    binder_status_t readFromParcel(const AParcel* parcel);
    binder_status_t writeToParcel(AParcel* parcel) const;

    inline bool operator==(const ParamIdElementPair& _rhs) const {
      return std::tie(paramId, element) == std::tie(_rhs.paramId, _rhs.element);
    }
    inline bool operator<(const ParamIdElementPair& _rhs) const {
      return std::tie(paramId, element) < std::tie(_rhs.paramId, _rhs.element);
    }
    inline bool operator!=(const ParamIdElementPair& _rhs) const {
      return !(*this == _rhs);
    }
    inline bool operator>(const ParamIdElementPair& _rhs) const {
      return _rhs < *this;
    }
    inline bool operator>=(const ParamIdElementPair& _rhs) const {
      return !(*this < _rhs);
    }
    inline bool operator<=(const ParamIdElementPair& _rhs) const {
      return !(_rhs < *this);
    }

    static const ::ndk::parcelable_stability_t _aidl_stability = ::ndk::STABILITY_LOCAL;
    inline std::string toString() const {
      std::ostringstream _aidl_os;
      _aidl_os << "ParamIdElementPair{";
      _aidl_os << "paramId: " << ::android::internal::ToString(paramId);
      _aidl_os << ", element: " << ::android::internal::ToString(element);
      _aidl_os << "}";
      return _aidl_os.str();
    }
  };
  class IReceiveAudioCallbackDelegator;

  class IReceiveAudioCallback : public ::ndk::ICInterface {
  public:
    typedef IReceiveAudioCallbackDelegator DefaultDelegator;
    static const char* descriptor;
    IReceiveAudioCallback();
    virtual ~IReceiveAudioCallback();

    static inline const int32_t version = 2;
    static inline const std::string hash = "21cfb57dc7bc99ea662ae356916bbebc3297cafa";
    static constexpr uint32_t TRANSACTION_ReceiveAudio = FIRST_CALL_TRANSACTION + 0;

    static std::shared_ptr<IReceiveAudioCallback> fromBinder(const ::ndk::SpAIBinder& binder);
    static binder_status_t writeToParcel(AParcel* parcel, const std::shared_ptr<IReceiveAudioCallback>& instance);
    static binder_status_t readFromParcel(const AParcel* parcel, std::shared_ptr<IReceiveAudioCallback>* instance);
    static bool setDefaultImpl(const std::shared_ptr<IReceiveAudioCallback>& impl);
    static const std::shared_ptr<IReceiveAudioCallback>& getDefaultImpl();
    virtual ::ndk::ScopedAStatus ReceiveAudio(const ::aidl::lumx::ILumx::AudioPacket& in_packet) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
  private:
    static std::shared_ptr<IReceiveAudioCallback> default_impl;
  };
  class IReceiveAudioCallbackDefault : public IReceiveAudioCallback {
  public:
    ::ndk::ScopedAStatus ReceiveAudio(const ::aidl::lumx::ILumx::AudioPacket& in_packet) override;
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) override;
    ::ndk::SpAIBinder asBinder() override;
    bool isRemote() override;
  };
  class BpReceiveAudioCallback : public ::ndk::BpCInterface<IReceiveAudioCallback> {
  public:
    explicit BpReceiveAudioCallback(const ::ndk::SpAIBinder& binder);
    virtual ~BpReceiveAudioCallback();

    ::ndk::ScopedAStatus ReceiveAudio(const ::aidl::lumx::ILumx::AudioPacket& in_packet) override;
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) override;
    int32_t _aidl_cached_version = -1;
    std::string _aidl_cached_hash = "-1";
    std::mutex _aidl_cached_hash_mutex;
  };
  class BnReceiveAudioCallback : public ::ndk::BnCInterface<IReceiveAudioCallback> {
  public:
    BnReceiveAudioCallback();
    virtual ~BnReceiveAudioCallback();
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) final;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) final;
  protected:
    ::ndk::SpAIBinder createBinder() override;
  private:
  };
  static inline const int32_t version = 2;
  static inline const std::string hash = "21cfb57dc7bc99ea662ae356916bbebc3297cafa";
  static constexpr uint32_t TRANSACTION_Ping = FIRST_CALL_TRANSACTION + 0;
  static constexpr uint32_t TRANSACTION_ShowGraph = FIRST_CALL_TRANSACTION + 1;
  static constexpr uint32_t TRANSACTION_ListProcessors = FIRST_CALL_TRANSACTION + 2;
  static constexpr uint32_t TRANSACTION_ListSupportedProcessors = FIRST_CALL_TRANSACTION + 3;
  static constexpr uint32_t TRANSACTION_NewProcessor = FIRST_CALL_TRANSACTION + 4;
  static constexpr uint32_t TRANSACTION_NewProcessorWithType = FIRST_CALL_TRANSACTION + 5;
  static constexpr uint32_t TRANSACTION_DeleteProcessor = FIRST_CALL_TRANSACTION + 6;
  static constexpr uint32_t TRANSACTION_ListSupportedUseCases = FIRST_CALL_TRANSACTION + 7;
  static constexpr uint32_t TRANSACTION_Enable = FIRST_CALL_TRANSACTION + 8;
  static constexpr uint32_t TRANSACTION_IsEnabled = FIRST_CALL_TRANSACTION + 9;
  static constexpr uint32_t TRANSACTION_ProcessorInfo = FIRST_CALL_TRANSACTION + 10;
  static constexpr uint32_t TRANSACTION_ProcessorEnable = FIRST_CALL_TRANSACTION + 11;
  static constexpr uint32_t TRANSACTION_ProcessorIsEnabled = FIRST_CALL_TRANSACTION + 12;
  static constexpr uint32_t TRANSACTION_TapList = FIRST_CALL_TRANSACTION + 13;
  static constexpr uint32_t TRANSACTION_TapInfo = FIRST_CALL_TRANSACTION + 14;
  static constexpr uint32_t TRANSACTION_TapEnable = FIRST_CALL_TRANSACTION + 15;
  static constexpr uint32_t TRANSACTION_TapSetBlockLength = FIRST_CALL_TRANSACTION + 16;
  static constexpr uint32_t TRANSACTION_ListTapOutBuffers = FIRST_CALL_TRANSACTION + 17;
  static constexpr uint32_t TRANSACTION_ListInjectBuffers = FIRST_CALL_TRANSACTION + 18;
  static constexpr uint32_t TRANSACTION_Connect = FIRST_CALL_TRANSACTION + 19;
  static constexpr uint32_t TRANSACTION_ConnectTap = FIRST_CALL_TRANSACTION + 20;
  static constexpr uint32_t TRANSACTION_StartIo = FIRST_CALL_TRANSACTION + 21;
  static constexpr uint32_t TRANSACTION_StopIo = FIRST_CALL_TRANSACTION + 22;
  static constexpr uint32_t TRANSACTION_Debug = FIRST_CALL_TRANSACTION + 23;
  static constexpr uint32_t TRANSACTION_EnableUseCase = FIRST_CALL_TRANSACTION + 24;
  static constexpr uint32_t TRANSACTION_IsUseCaseEnabled = FIRST_CALL_TRANSACTION + 25;
  static constexpr uint32_t TRANSACTION_SetParameter = FIRST_CALL_TRANSACTION + 26;
  static constexpr uint32_t TRANSACTION_GetParameter = FIRST_CALL_TRANSACTION + 27;
  static constexpr uint32_t TRANSACTION_SetParameterBulk = FIRST_CALL_TRANSACTION + 28;
  static constexpr uint32_t TRANSACTION_GetParameterBulk = FIRST_CALL_TRANSACTION + 29;
  static constexpr uint32_t TRANSACTION_ListParameters = FIRST_CALL_TRANSACTION + 30;
  static constexpr uint32_t TRANSACTION_SendAudio = FIRST_CALL_TRANSACTION + 31;
  static constexpr uint32_t TRANSACTION_RegisterReceiveAudioCallback = FIRST_CALL_TRANSACTION + 32;

  static std::shared_ptr<ILumx> fromBinder(const ::ndk::SpAIBinder& binder);
  static binder_status_t writeToParcel(AParcel* parcel, const std::shared_ptr<ILumx>& instance);
  static binder_status_t readFromParcel(const AParcel* parcel, std::shared_ptr<ILumx>* instance);
  static bool setDefaultImpl(const std::shared_ptr<ILumx>& impl);
  static const std::shared_ptr<ILumx>& getDefaultImpl();
  virtual ::ndk::ScopedAStatus Ping() = 0;
  virtual ::ndk::ScopedAStatus ShowGraph(::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ListProcessors(::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ListSupportedProcessors(::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus NewProcessor(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus NewProcessorWithType(int32_t in_processorId, int32_t in_processorType, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus DeleteProcessor(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ListSupportedUseCases(::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus Enable(const std::string& in_useCaseName, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus IsEnabled(const std::string& in_useCaseName, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ProcessorInfo(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ProcessorEnable(int32_t in_processorId, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ProcessorIsEnabled(int32_t in_processorId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus TapList(int32_t in_core, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus TapInfo(int32_t in_core, int32_t in_tap, int32_t in_index, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus TapEnable(int32_t in_core, int32_t in_tap, int32_t in_index, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus TapSetBlockLength(int32_t in_core, int32_t in_tap, int32_t in_index, int32_t in_blockLength, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ListTapOutBuffers(::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ListInjectBuffers(::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus Connect(int32_t in_processorId, int32_t in_tapOutBuffer, int32_t in_injectBuffer, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ConnectTap(int32_t in_core, int32_t in_tap, int32_t in_index, int32_t in_tapOutBuffer, int32_t in_injectBuffer, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus StartIo(int32_t in_bufferId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus StopIo(int32_t in_bufferId, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus Debug(const std::vector<std::string>& in_args, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus EnableUseCase(::aidl::lumx::ILumx::UseCase in_useCase, bool in_enable, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus IsUseCaseEnabled(::aidl::lumx::ILumx::UseCase in_useCase, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus SetParameter(int32_t in_processorId, ::aidl::lumx::ILumx::ParameterId in_paramId, int32_t in_element, const ::aidl::lumx::ILumx::ParamValue& in_value, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus GetParameter(int32_t in_processorId, ::aidl::lumx::ILumx::ParameterId in_paramId, int32_t in_element, ::aidl::lumx::ILumx::ParamValue* out_value, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus SetParameterBulk(int32_t in_processorId, const std::vector<::aidl::lumx::ILumx::ParamIdElementPair>& in_params, const std::vector<::aidl::lumx::ILumx::ParamValue>& in_values, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus GetParameterBulk(int32_t in_processorId, const std::vector<::aidl::lumx::ILumx::ParamIdElementPair>& in_params, ::aidl::lumx::ILumx::CommandResult* out_result, std::vector<::aidl::lumx::ILumx::ParamValue>* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus ListParameters(::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus SendAudio(int32_t in_processorId, const ::aidl::lumx::ILumx::AudioPacket& in_packet, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus RegisterReceiveAudioCallback(int32_t in_processorId, const std::shared_ptr<::aidl::lumx::ILumx::IReceiveAudioCallback>& in_callback, ::aidl::lumx::ILumx::CommandResult* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
  virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
private:
  static std::shared_ptr<ILumx> default_impl;
};
class ILumxDefault : public ILumx {
public:
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
  ::ndk::SpAIBinder asBinder() override;
  bool isRemote() override;
};
}  // namespace lumx
}  // namespace aidl
namespace aidl {
namespace lumx {
[[nodiscard]] static inline std::string toString(ILumx::CommandResult::Status val) {
  switch(val) {
  case ILumx::CommandResult::Status::OK:
    return "OK";
  case ILumx::CommandResult::Status::ERROR:
    return "ERROR";
  case ILumx::CommandResult::Status::INVALID_PROCESSOR:
    return "INVALID_PROCESSOR";
  case ILumx::CommandResult::Status::INVALID_PARAMETER:
    return "INVALID_PARAMETER";
  case ILumx::CommandResult::Status::INVALID_VALUE:
    return "INVALID_VALUE";
  case ILumx::CommandResult::Status::INVALID_ELEMENT:
    return "INVALID_ELEMENT";
  case ILumx::CommandResult::Status::READ_ONLY:
    return "READ_ONLY";
  default:
    return std::to_string(static_cast<int8_t>(val));
  }
}
}  // namespace lumx
}  // namespace aidl
namespace ndk {
namespace internal {
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc++17-extensions"
template <>
constexpr inline std::array<aidl::lumx::ILumx::CommandResult::Status, 7> enum_values<aidl::lumx::ILumx::CommandResult::Status> = {
  aidl::lumx::ILumx::CommandResult::Status::OK,
  aidl::lumx::ILumx::CommandResult::Status::ERROR,
  aidl::lumx::ILumx::CommandResult::Status::INVALID_PROCESSOR,
  aidl::lumx::ILumx::CommandResult::Status::INVALID_PARAMETER,
  aidl::lumx::ILumx::CommandResult::Status::INVALID_VALUE,
  aidl::lumx::ILumx::CommandResult::Status::INVALID_ELEMENT,
  aidl::lumx::ILumx::CommandResult::Status::READ_ONLY,
};
#pragma clang diagnostic pop
}  // namespace internal
}  // namespace ndk
namespace aidl {
namespace lumx {
[[nodiscard]] static inline std::string toString(ILumx::ParamValue::Tag val) {
  switch(val) {
  case ILumx::ParamValue::Tag::i:
    return "i";
  case ILumx::ParamValue::Tag::f:
    return "f";
  default:
    return std::to_string(static_cast<int32_t>(val));
  }
}
}  // namespace lumx
}  // namespace aidl
namespace ndk {
namespace internal {
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc++17-extensions"
template <>
constexpr inline std::array<aidl::lumx::ILumx::ParamValue::Tag, 2> enum_values<aidl::lumx::ILumx::ParamValue::Tag> = {
  aidl::lumx::ILumx::ParamValue::Tag::i,
  aidl::lumx::ILumx::ParamValue::Tag::f,
};
#pragma clang diagnostic pop
}  // namespace internal
}  // namespace ndk
namespace aidl {
namespace lumx {
[[nodiscard]] static inline std::string toString(ILumx::ParameterId val) {
  switch(val) {
  case ILumx::ParameterId::UNSPECIFIED:
    return "UNSPECIFIED";
  case ILumx::ParameterId::VERSION:
    return "VERSION";
  case ILumx::ParameterId::PASSTHROUGH_MODE:
    return "PASSTHROUGH_MODE";
  case ILumx::ParameterId::TEST_MODE:
    return "TEST_MODE";
  case ILumx::ParameterId::BLOCK_LENGTH:
    return "BLOCK_LENGTH";
  case ILumx::ParameterId::AUDIO_FORMAT:
    return "AUDIO_FORMAT";
  default:
    return std::to_string(static_cast<int32_t>(val));
  }
}
}  // namespace lumx
}  // namespace aidl
namespace ndk {
namespace internal {
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc++17-extensions"
template <>
constexpr inline std::array<aidl::lumx::ILumx::ParameterId, 6> enum_values<aidl::lumx::ILumx::ParameterId> = {
  aidl::lumx::ILumx::ParameterId::UNSPECIFIED,
  aidl::lumx::ILumx::ParameterId::VERSION,
  aidl::lumx::ILumx::ParameterId::PASSTHROUGH_MODE,
  aidl::lumx::ILumx::ParameterId::TEST_MODE,
  aidl::lumx::ILumx::ParameterId::BLOCK_LENGTH,
  aidl::lumx::ILumx::ParameterId::AUDIO_FORMAT,
};
#pragma clang diagnostic pop
}  // namespace internal
}  // namespace ndk
namespace aidl {
namespace lumx {
[[nodiscard]] static inline std::string toString(ILumx::UseCase val) {
  switch(val) {
  case ILumx::UseCase::UNSPECIFIED:
    return "UNSPECIFIED";
  case ILumx::UseCase::HOTWORDAEC:
    return "HOTWORDAEC";
  case ILumx::UseCase::MIC_IN:
    return "MIC_IN";
  case ILumx::UseCase::SPEAKER_OUT:
    return "SPEAKER_OUT";
  case ILumx::UseCase::AREL_TELE:
    return "AREL_TELE";
  default:
    return std::to_string(static_cast<int8_t>(val));
  }
}
}  // namespace lumx
}  // namespace aidl
namespace ndk {
namespace internal {
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc++17-extensions"
template <>
constexpr inline std::array<aidl::lumx::ILumx::UseCase, 5> enum_values<aidl::lumx::ILumx::UseCase> = {
  aidl::lumx::ILumx::UseCase::UNSPECIFIED,
  aidl::lumx::ILumx::UseCase::HOTWORDAEC,
  aidl::lumx::ILumx::UseCase::MIC_IN,
  aidl::lumx::ILumx::UseCase::SPEAKER_OUT,
  aidl::lumx::ILumx::UseCase::AREL_TELE,
};
#pragma clang diagnostic pop
}  // namespace internal
}  // namespace ndk
