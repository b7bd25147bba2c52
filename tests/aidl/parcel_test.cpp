// Parcel layout, round trips, malformed input and text forms of the ILumx
// types.
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "aidl/aidl_test_support.h"

namespace lumx_aidl_test {
namespace {

struct ParcelDeleter {
  void operator()(AParcel* p) const { AParcel_delete(p); }
};
using Parcel = std::unique_ptr<AParcel, ParcelDeleter>;
using Writer = std::function<void(AParcel*)>;

Parcel NewParcel() { return Parcel(AParcel_create()); }

// A parcel holding the 32-bit words `words`, positioned at 0.
Parcel Words(const std::vector<int32_t>& words) {
  Parcel p = NewParcel();
  for (int32_t w : words) EXPECT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), w));
  AParcel_setDataPosition(p.get(), 0);
  return p;
}

// The parcel's contents as 32-bit words (parcels are padded to 4 bytes).
std::vector<int32_t> WordsOf(const AParcel* p) {
  std::vector<int32_t> words;
  AParcel_setDataPosition(p, 0);
  for (int32_t w = 0; AParcel_readInt32(p, &w) == STATUS_OK;) words.push_back(w);
  return words;
}

int32_t Bits(float f) {
  int32_t w;
  memcpy(&w, &f, 4);
  return w;
}

// Every type the interface carries, written as a top-level value (non-null
// marker + body for parcelables): it round-trips exactly, nothing is left
// over, and every strict prefix of its encoding fails to read.
template <typename T>
void ExpectRoundTripAndTruncationErrors(const T& v) {
  SCOPED_TRACE(Show(v));
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), v));
  AParcel_setDataPosition(p.get(), 0);
  T back{};
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_readData(p.get(), &back));
  EXPECT_TRUE(ParcelConsumed(p.get()));
  EXPECT_TRUE(SameAs("round trip", back, v));
  const int32_t size = AParcel_getDataSize(p.get());
  for (int32_t n = 0; n < size; ++n) {
    Parcel q = NewParcel();
    if (n > 0) {
      ASSERT_EQ(STATUS_OK, AParcel_appendFrom(p.get(), q.get(), 0, n));
    }
    AParcel_setDataPosition(q.get(), 0);
    T cut{};
    EXPECT_NE(STATUS_OK, ::ndk::AParcel_readData(q.get(), &cut)) << "cut to " << n << " of " << size;
  }
}

TEST(AidlParcel, EveryTypeRoundTripsAndRefusesEveryTruncation) {
  CommandResult full;
  full.status = Status::READ_ONLY;
  full.value = -1234.5f;
  full.strList = {"first line", "", "  indented, with comma", "\xc3\xa9t\xc3\xa9 \xe2\x82\xac"};
  CommandResult odd;
  odd.status = static_cast<Status>(-100);  // outside the table: still carried
  CommandResult many;
  for (int i = 0; i < 40; ++i) many.strList.push_back(std::string(static_cast<size_t>(i % 97), 'a' + i % 26));
  for (const CommandResult& r : {CommandResult{}, full, odd, many, Gen<CommandResult>(3, 4)}) {
    ExpectRoundTripAndTruncationErrors(r);
  }
  for (const ParamValue& v : {ParamValue{}, ParamValue::make<ParamValue::i>(-77),
                              ParamValue::make<ParamValue::f>(0.125f)}) {
    ExpectRoundTripAndTruncationErrors(v);
  }
  AudioPacket big = Gen<AudioPacket>(1, 1);
  big.data.assign(1024, 0xa5);
  ExpectRoundTripAndTruncationErrors(AudioPacket{});
  ExpectRoundTripAndTruncationErrors(big);
  for (size_t n : {1u, 2u, 3u, 5u}) {  // lengths that need padding
    AudioPacket a = Gen<AudioPacket>(2, static_cast<int>(n));
    a.data.resize(n);
    ExpectRoundTripAndTruncationErrors(a);
  }
  ExpectRoundTripAndTruncationErrors(ParamIdElementPair{});
  ExpectRoundTripAndTruncationErrors(Gen<std::vector<ParamIdElementPair>>(3, 4));
  ExpectRoundTripAndTruncationErrors(Gen<std::vector<ParamValue>>(3, 4));
  ExpectRoundTripAndTruncationErrors(std::vector<ParamValue>{});
  ExpectRoundTripAndTruncationErrors(std::vector<std::string>{"", "a", ""});
  for (UseCase u : ::ndk::enum_range<UseCase>()) ExpectRoundTripAndTruncationErrors(u);
  ExpectRoundTripAndTruncationErrors(static_cast<UseCase>(42));
  ExpectRoundTripAndTruncationErrors(static_cast<ParameterId>(0x12345678));
}

// The exact words each type puts on the wire.
template <typename T>
std::pair<std::string, std::function<std::vector<int32_t>()>> Layout(const T& v) {
  return {Show(v), [v] {
            Parcel p = NewParcel();
            EXPECT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), v));
            return WordsOf(p.get());
          }};
}

TEST(AidlParcel, WireLayoutOfEveryType) {
  CommandResult r;
  r.status = Status::INVALID_VALUE;
  r.value = 2.5f;
  r.strList = {"a", "bc"};
  AudioPacket a;
  a.processor_id = -3;
  a.data = {0x00, 0xff, 0x80};
  a.sampleRate = 5;
  a.format = -1;
  a.bitsPerSample = 2;
  a.numChannels = 6;
  a.reserved = 1;
  ParamIdElementPair pair;
  pair.paramId = ParameterId::BLOCK_LENGTH;
  pair.element = -9;
  const std::vector<std::pair<decltype(Layout(r)), std::vector<int32_t>>> cases = {
      // marker, size (counts itself up to the end), status byte in its own
      // slot, float, list: count, then each string: length, bytes + NUL padded.
      {Layout(r), {1, 32, 4, Bits(2.5f), 2, 1, 'a', 2, 'b' | 'c' << 8}},
      // marker, tag, value; a union has no size.
      {Layout(ParamValue::make<ParamValue::f>(0.125f)), {1, 1, Bits(0.125f)}},
      {Layout(ParamValue::make<ParamValue::i>(-5)), {1, 0, -5}},
      // marker, size, id, byte[] (count, packed bytes padded), five byte slots.
      {Layout(a), {1, 36, -3, 3, 0x0080ff00, 5, -1, 2, 6, 1}},
      {Layout(pair), {1, 12, 3, -9}},
      // A list of unions: count, then marker + tag + value per element.
      {Layout(std::vector<ParamValue>{ParamValue::make<ParamValue::i>(5), ParamValue::make<ParamValue::f>(1.5f)}),
       {2, 1, 0, 5, 1, 1, Bits(1.5f)}},
      // Enums travel as their backing type, sign-extended into one slot.
      {Layout(UseCase::UNSPECIFIED), {-1}},
      {Layout(static_cast<Status>(-2)), {-2}},
      {Layout(ParameterId::UNSPECIFIED), {-1}},
      {Layout(static_cast<ParameterId>(0x12345678)), {0x12345678}},
  };
  for (const auto& [layout, want] : cases) EXPECT_EQ(want, layout.second()) << layout.first;
}

template <typename T>
std::function<binder_status_t(const AParcel*)> Reads() {
  return [](const AParcel* p) {
    T v{};
    return ::ndk::AParcel_readData(p, &v);
  };
}

TEST(AidlParcel, MalformedInputIsAnErrorNotACrash) {
  const struct {
    const char* what;
    std::vector<int32_t> words;
    std::function<binder_status_t(const AParcel*)> read;
    binder_status_t want;  // 1: any error
  } cases[] = {
      {"parcelable null marker", {0}, Reads<CommandResult>(), STATUS_UNEXPECTED_NULL},
      {"size 0", {1, 0, 0}, Reads<CommandResult>(), STATUS_BAD_VALUE},
      {"size 3", {1, 3, 0}, Reads<CommandResult>(), STATUS_BAD_VALUE},
      {"size -1", {1, -1, 0}, Reads<CommandResult>(), STATUS_BAD_VALUE},
      {"size INT32_MIN", {1, INT32_MIN, 0}, Reads<CommandResult>(), STATUS_BAD_VALUE},
      {"end past INT32_MAX", {1, INT32_MAX}, Reads<CommandResult>(), STATUS_BAD_VALUE},
      {"null strList", {1, 16, 0, 0, -1}, Reads<CommandResult>(), 1},
      {"union tag 2", {1, 2, 5}, Reads<ParamValue>(), STATUS_BAD_VALUE},
      {"union tag -1", {1, -1, 5}, Reads<ParamValue>(), STATUS_BAD_VALUE},
      {"union tag INT32_MIN", {1, INT32_MIN, 5}, Reads<ParamValue>(), STATUS_BAD_VALUE},
      {"null list", {-1}, Reads<std::vector<ParamValue>>(), 1},
      {"bad tag in 2nd element", {2, 1, 0, 7, 1, 9, 7}, Reads<std::vector<ParamValue>>(), STATUS_BAD_VALUE},
      {"count beyond the parcel", {1 << 28}, Reads<std::vector<ParamIdElementPair>>(), 1},
  };
  for (const auto& c : cases) {
    Parcel p = Words(c.words);
    binder_status_t st = c.read(p.get());
    if (c.want == 1) {
      EXPECT_NE(STATUS_OK, st) << c.what;
    } else {
      EXPECT_EQ(c.want, st) << c.what;
    }
  }
  // A refused union read leaves the value alone.
  ParamValue v = ParamValue::make<ParamValue::f>(4.0f);
  EXPECT_EQ(STATUS_BAD_VALUE, v.readFromParcel(Words({1000, 5}).get()));
  EXPECT_EQ(ParamValue::make<ParamValue::f>(4.0f), v);
}

TEST(AidlParcel, ReaderToleratesOlderAndNewerSenders) {
  // An older sender that only knew `status`: size covers size + one slot;
  // the rest keep their defaults and the next value is read where it is.
  Parcel older = Words({8, 3, 0x5eed});
  CommandResult fresh;
  ASSERT_EQ(STATUS_OK, fresh.readFromParcel(older.get()));
  EXPECT_EQ(CommandResult{}.value, fresh.value);
  EXPECT_EQ(Status::INVALID_PARAMETER, fresh.status);
  EXPECT_TRUE(fresh.strList.empty());
  int32_t next = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(older.get(), &next));
  EXPECT_EQ(0x5eed, next);

  // A newer sender that added fields: the size skips them.
  CommandResult r = Gen<CommandResult>(1, 1);
  Parcel newer = NewParcel();
  ASSERT_EQ(STATUS_OK, r.writeToParcel(newer.get()));
  const int32_t end = AParcel_getDataPosition(newer.get());
  for (int32_t w : {0x7777, 0x7778, 0x5eed}) ASSERT_EQ(STATUS_OK, AParcel_writeInt32(newer.get(), w));
  AParcel_setDataPosition(newer.get(), 0);
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(newer.get(), end + 8));
  AParcel_setDataPosition(newer.get(), 0);
  CommandResult back;
  ASSERT_EQ(STATUS_OK, back.readFromParcel(newer.get()));
  EXPECT_EQ(r, back);
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(newer.get(), &next));
  EXPECT_EQ(0x5eed, next);
}

TEST(ParamValueDeathTest, WrongTagAbortsWithTheAssertionText) {
  ParamValue i = ParamValue::make<ParamValue::i>(3);
  EXPECT_DEATH((void)i.get<ParamValue::f>(), "ILumx\\.h:[0-9]+: .*get.*: assertion \"bad access: a wrong tag\" failed");
  // The same number in the other alternative is another value.
  EXPECT_NE(ParamValue::make<ParamValue::i>(1), ParamValue::make<ParamValue::f>(1.0f));
  EXPECT_EQ(ParamValue::Tag::i, ParamValue(int32_t{9}).getTag());
}

TEST(AidlText, GeneratedForms) {
  CommandResult seven;
  seven.status = static_cast<Status>(7);
  seven.value = 48000.0f;
  seven.strList = {"x", "", "y"};
  CommandResult e;
  e.status = Status::INVALID_ELEMENT;
  e.value = -2.5f;
  e.strList = {"Invalid element 9"};
  ParamIdElementPair pair;
  pair.paramId = ParameterId::TEST_MODE;
  pair.element = 3;
  AudioPacket a;
  a.processor_id = 7;
  a.data = {1, 255};
  a.sampleRate = 5;
  a.bitsPerSample = 1;
  a.numChannels = 2;
  a.reserved = 1;
  const std::pair<std::string, std::string> cases[] = {
      {CommandResult{}.toString(), "CommandResult{status: OK, value: 0.000000, strList: []}"},
      {e.toString(), "CommandResult{status: INVALID_ELEMENT, value: -2.500000, strList: [Invalid element 9]}"},
      {seven.toString(), "CommandResult{status: 7, value: 48000.000000, strList: [x, , y]}"},
      {ParamValue::make<ParamValue::i>(-5).toString(), "ParamValue{i: -5}"},
      {ParamValue::make<ParamValue::f>(1.5f).toString(), "ParamValue{f: 1.500000}"},
      {pair.toString(), "ParamIdElementPair{paramId: TEST_MODE, element: 3}"},
      {ParamIdElementPair{}.toString(), "ParamIdElementPair{paramId: UNSPECIFIED, element: 0}"},
      {a.toString(),
       "AudioPacket{processor_id: 7, data: [1, 255], sampleRate: 5, format: 0, bitsPerSample: 1, numChannels: 2, "
       "reserved: 1}"},
      // Values outside an enum's table print as numbers.
      {toString(static_cast<UseCase>(4)), "4"},
      {toString(static_cast<UseCase>(0x80)), "-128"},
      {toString(static_cast<ParameterId>(-7)), "-7"},
  };
  for (const auto& [got, want] : cases) EXPECT_EQ(want, got);
}

TEST(InterfaceParcel, CallbacksTravelAsBindersAndFromBinderChecksTheInterface) {
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  std::shared_ptr<IReceiveAudioCallback> asInterface = cb;
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), std::shared_ptr<IReceiveAudioCallback>()));
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), asInterface));
  AParcel_setDataPosition(p.get(), 0);
  std::shared_ptr<IReceiveAudioCallback> none = cb, back;
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_readData(p.get(), &none));
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_readData(p.get(), &back));
  EXPECT_EQ(nullptr, none) << "a null callback travels as a null binder";
  EXPECT_EQ(asInterface.get(), back.get()) << "a local callback comes back as the same object";

  EXPECT_EQ(nullptr, ILumx::fromBinder(cb->asBinder()));
  EXPECT_EQ(nullptr, ILumx::fromBinder(::ndk::SpAIBinder()));
  auto lumx = ::ndk::SharedRefBase::make<RecordingLumx>();
  EXPECT_EQ(static_cast<ILumx*>(lumx.get()), ILumx::fromBinder(lumx->asBinder()).get());
  EXPECT_EQ(nullptr, IReceiveAudioCallback::fromBinder(lumx->asBinder()));
}

}  // namespace
}  // namespace lumx_aidl_test
