// Parcel layout, round trips, malformed input and text forms of the ILumx
// types.
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <climits>
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

Parcel NewParcel() { return Parcel(AParcel_create()); }

// Writes `v` as a top-level value (non-null marker + body for parcelables),
// rewinds, reads it back and checks nothing is left over.
template <typename T>
::testing::AssertionResult RoundTrips(const T& v) {
  Parcel p = NewParcel();
  binder_status_t st = ::ndk::AParcel_writeData(p.get(), v);
  if (st != STATUS_OK) return ::testing::AssertionFailure() << "write failed: " << st;
  AParcel_setDataPosition(p.get(), 0);
  T back{};
  st = ::ndk::AParcel_readData(p.get(), &back);
  if (st != STATUS_OK) return ::testing::AssertionFailure() << "read failed: " << st;
  if (!ParcelConsumed(p.get())) return ::testing::AssertionFailure() << "bytes left over";
  return SameAs("round trip", back, v);
}

// A copy of the first `n` bytes of `p`.
Parcel Prefix(const AParcel* p, int32_t n) {
  Parcel q = NewParcel();
  if (n > 0) EXPECT_EQ(STATUS_OK, AParcel_appendFrom(p, q.get(), 0, n));
  AParcel_setDataPosition(q.get(), 0);
  return q;
}

// Every strict prefix of the encoding of `v` must fail to read, not crash
// and not pass as a complete value.
template <typename T>
void ExpectEveryTruncationFails(const T& v) {
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), v));
  int32_t size = AParcel_getDataSize(p.get());
  for (int32_t n = 0; n < size; ++n) {
    Parcel q = Prefix(p.get(), n);
    T back{};
    EXPECT_NE(STATUS_OK, ::ndk::AParcel_readData(q.get(), &back)) << Show(v) << " cut to " << n << " of " << size;
  }
}

// ---------------------------------------------------------------------------
// CommandResult

TEST(CommandResultParcel, RoundTripsWithEveryKindOfContent) {
  CommandResult empty;
  EXPECT_TRUE(RoundTrips(empty));

  CommandResult full;
  full.status = Status::READ_ONLY;
  full.value = -1234.5f;
  full.strList = {"first line", "", "  indented, with comma", "\xc3\xa9t\xc3\xa9 \xe2\x82\xac"};
  EXPECT_TRUE(RoundTrips(full));

  CommandResult unknownStatus;
  unknownStatus.status = static_cast<Status>(7);
  unknownStatus.strList = {"x"};
  EXPECT_TRUE(RoundTrips(unknownStatus));

  CommandResult negativeStatus;
  negativeStatus.status = static_cast<Status>(-100);
  EXPECT_TRUE(RoundTrips(negativeStatus));

  CommandResult many;
  for (int i = 0; i < 500; ++i) many.strList.push_back(std::string(static_cast<size_t>(i % 97), 'a' + i % 26));
  EXPECT_TRUE(RoundTrips(many));
}

TEST(CommandResultParcel, LayoutIsMarkerSizeThenFieldsInOrder) {
  CommandResult r;
  r.status = Status::INVALID_VALUE;
  r.value = 2.5f;
  r.strList = {"a", "bc"};
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), r));
  AParcel_setDataPosition(p.get(), 0);

  int32_t marker = 0, size = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &marker));
  EXPECT_EQ(1, marker);
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &size));
  // The size counts itself and everything up to the end of the last field.
  EXPECT_EQ(AParcel_getDataSize(p.get()) - 4, size);

  int8_t status = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readByte(p.get(), &status));
  EXPECT_EQ(4, status);
  float value = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readFloat(p.get(), &value));
  EXPECT_EQ(2.5f, value);
  std::vector<std::string> lines;
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_readData(p.get(), &lines));
  EXPECT_EQ(r.strList, lines);
  EXPECT_TRUE(ParcelConsumed(p.get()));
}

TEST(CommandResultParcel, StatusTravelsAsOneByteSlot) {
  // A status written alone takes one int32 slot, sign-extended.
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), static_cast<Status>(-2)));
  EXPECT_EQ(4, AParcel_getDataSize(p.get()));
  AParcel_setDataPosition(p.get(), 0);
  int32_t slot = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &slot));
  EXPECT_EQ(-2, slot);
}

TEST(CommandResultParcel, ReaderKeepsDefaultsForFieldsAnOlderSenderLacks) {
  // An older sender that only knew `status`: size covers size + one slot.
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 8));
  ASSERT_EQ(STATUS_OK, AParcel_writeByte(p.get(), 3));
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 0x5eed));  // next value in the parcel
  AParcel_setDataPosition(p.get(), 0);

  CommandResult fresh;
  ASSERT_EQ(STATUS_OK, fresh.readFromParcel(p.get()));
  EXPECT_EQ(Status::INVALID_PARAMETER, fresh.status);
  EXPECT_EQ(0.0f, fresh.value);
  EXPECT_TRUE(fresh.strList.empty());
  int32_t next = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &next));
  EXPECT_EQ(0x5eed, next);
}

TEST(CommandResultParcel, ReaderSkipsFieldsANewerSenderAdded) {
  CommandResult r;
  r.status = Status::ERROR;
  r.value = 1.0f;
  r.strList = {"z"};
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, r.writeToParcel(p.get()));
  // Append a field this version does not know and grow the size to cover it.
  int32_t end = AParcel_getDataPosition(p.get());
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 0x7777));
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 0x7778));
  AParcel_setDataPosition(p.get(), 0);
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), end + 8));
  AParcel_setDataPosition(p.get(), end + 8);
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 0x5eed));

  AParcel_setDataPosition(p.get(), 0);
  CommandResult back;
  ASSERT_EQ(STATUS_OK, back.readFromParcel(p.get()));
  EXPECT_EQ(r, back);
  int32_t next = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &next));
  EXPECT_EQ(0x5eed, next);
}

TEST(CommandResultParcel, MalformedSizesAreRefused) {
  for (int32_t bad : {0, 3, -1, INT32_MIN}) {
    Parcel p = NewParcel();
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), bad));
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 0));
    AParcel_setDataPosition(p.get(), 0);
    CommandResult r;
    EXPECT_EQ(STATUS_BAD_VALUE, r.readFromParcel(p.get())) << "size " << bad;
  }
  // A size that would run the end position past INT32_MAX.
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 0));
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), INT32_MAX));
  AParcel_setDataPosition(p.get(), 4);
  CommandResult r;
  EXPECT_EQ(STATUS_BAD_VALUE, r.readFromParcel(p.get()));
}

TEST(CommandResultParcel, NullMarkerAndNullListAreErrors) {
  Parcel absent = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(absent.get(), 0));
  AParcel_setDataPosition(absent.get(), 0);
  CommandResult r;
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, ::ndk::AParcel_readData(absent.get(), &r));

  // strList is not @nullable: a null string array in its place is refused.
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 0));  // size, patched below
  ASSERT_EQ(STATUS_OK, AParcel_writeByte(p.get(), 0));
  ASSERT_EQ(STATUS_OK, AParcel_writeFloat(p.get(), 0.0f));
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), -1));  // null array
  int32_t end = AParcel_getDataPosition(p.get());
  AParcel_setDataPosition(p.get(), 0);
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), end));
  AParcel_setDataPosition(p.get(), 0);
  EXPECT_NE(STATUS_OK, r.readFromParcel(p.get()));
}

TEST(CommandResultParcel, EveryTruncationIsAnError) {
  CommandResult r;
  r.status = Status::INVALID_ELEMENT;
  r.value = 3.0f;
  r.strList = {"abcd", "e", ""};
  ExpectEveryTruncationFails(r);
  ExpectEveryTruncationFails(CommandResult{});
}

// ---------------------------------------------------------------------------
// ParamValue (union)

TEST(ParamValueParcel, EachTagRoundTripsAsTagThenValue) {
  ParamValue i = ParamValue::make<ParamValue::i>(-77);
  ParamValue f = ParamValue::make<ParamValue::f>(0.125f);
  EXPECT_TRUE(RoundTrips(i));
  EXPECT_TRUE(RoundTrips(f));
  EXPECT_TRUE(RoundTrips(ParamValue{}));

  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), f));
  AParcel_setDataPosition(p.get(), 0);
  int32_t marker = 0, tag = 0;
  float value = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &marker));
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &tag));
  ASSERT_EQ(STATUS_OK, AParcel_readFloat(p.get(), &value));
  EXPECT_EQ(1, marker);
  EXPECT_EQ(1, tag);  // no size prefix in a union
  EXPECT_EQ(0.125f, value);
  EXPECT_TRUE(ParcelConsumed(p.get()));
}

TEST(ParamValueParcel, UnknownTagIsAnErrorNotAnAbort) {
  for (int32_t tag : {2, -1, 1000, INT32_MIN}) {
    Parcel p = NewParcel();
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), tag));
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 5));
    AParcel_setDataPosition(p.get(), 0);
    ParamValue v = ParamValue::make<ParamValue::f>(4.0f);
    EXPECT_EQ(STATUS_BAD_VALUE, v.readFromParcel(p.get())) << "tag " << tag;
    EXPECT_EQ(ParamValue::make<ParamValue::f>(4.0f), v) << "a refused read leaves the value alone";
  }
}

TEST(ParamValueParcel, EveryTruncationIsAnError) {
  ExpectEveryTruncationFails(ParamValue::make<ParamValue::i>(1));
  ExpectEveryTruncationFails(ParamValue::make<ParamValue::f>(1.0f));
}

TEST(ParamValueAccess, TagsAndValues) {
  ParamValue v;
  EXPECT_EQ(ParamValue::Tag::i, v.getTag());
  EXPECT_EQ(0, v.get<ParamValue::i>());
  v.set<ParamValue::f>(2.5f);
  EXPECT_EQ(ParamValue::Tag::f, v.getTag());
  EXPECT_EQ(2.5f, v.get<ParamValue::f>());
  ParamValue fromInt(int32_t{9});
  EXPECT_EQ(ParamValue::Tag::i, fromInt.getTag());
  // Same number, different alternative: not equal.
  EXPECT_NE(ParamValue::make<ParamValue::i>(1), ParamValue::make<ParamValue::f>(1.0f));
}

TEST(ParamValueDeathTest, WrongTagAbortsWithTheAssertionText) {
  const ParamValue f = ParamValue::make<ParamValue::f>(1.0f);
  EXPECT_DEATH((void)f.get<ParamValue::i>(), "assertion \"bad access: a wrong tag\" failed");
  ParamValue i = ParamValue::make<ParamValue::i>(3);
  EXPECT_DEATH((void)i.get<ParamValue::f>(), "ILumx\\.h:[0-9]+: .*get.*: assertion \"bad access: a wrong tag\" failed");
}

// ---------------------------------------------------------------------------
// Enums

TEST(EnumParcel, UseCaseUnspecifiedTravelsAsByteFF) {
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), UseCase::UNSPECIFIED));
  EXPECT_EQ(4, AParcel_getDataSize(p.get()));
  AParcel_setDataPosition(p.get(), 0);
  int8_t byte = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readByte(p.get(), &byte));
  EXPECT_EQ(0xFF, static_cast<uint8_t>(byte));
  AParcel_setDataPosition(p.get(), 0);
  int32_t slot = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &slot));
  EXPECT_EQ(-1, slot);
  EXPECT_EQ("UNSPECIFIED", toString(UseCase::UNSPECIFIED));
  for (UseCase u : ::ndk::enum_range<UseCase>()) EXPECT_TRUE(RoundTrips(u)) << toString(u);
  EXPECT_TRUE(RoundTrips(static_cast<UseCase>(42)));
}

TEST(EnumParcel, ParameterIdTravelsAsInt32) {
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), ParameterId::UNSPECIFIED));
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), static_cast<ParameterId>(0x12345678)));
  AParcel_setDataPosition(p.get(), 0);
  int32_t a = 0, b = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &a));
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &b));
  EXPECT_EQ(-1, a);
  EXPECT_EQ(0x12345678, b);
}

TEST(EnumText, NamesAndUnknownValuesAsNumbers) {
  EXPECT_EQ("HOTWORDAEC", toString(UseCase::HOTWORDAEC));
  EXPECT_EQ("MIC_IN", toString(UseCase::MIC_IN));
  EXPECT_EQ("SPEAKER_OUT", toString(UseCase::SPEAKER_OUT));
  EXPECT_EQ("AREL_TELE", toString(UseCase::AREL_TELE));
  EXPECT_EQ("4", toString(static_cast<UseCase>(4)));
  EXPECT_EQ("-2", toString(static_cast<UseCase>(-2)));
  EXPECT_EQ("-128", toString(static_cast<UseCase>(0x80)));

  EXPECT_EQ("UNSPECIFIED", toString(ParameterId::UNSPECIFIED));
  EXPECT_EQ("VERSION", toString(ParameterId::VERSION));
  EXPECT_EQ("AUDIO_FORMAT", toString(ParameterId::AUDIO_FORMAT));
  EXPECT_EQ("5", toString(static_cast<ParameterId>(5)));
  EXPECT_EQ("-7", toString(static_cast<ParameterId>(-7)));

  EXPECT_EQ("INVALID_ELEMENT", toString(Status::INVALID_ELEMENT));
  EXPECT_EQ("READ_ONLY", toString(Status::READ_ONLY));
  EXPECT_EQ("7", toString(static_cast<Status>(7)));

  EXPECT_EQ("i", toString(ParamValue::Tag::i));
  EXPECT_EQ("f", toString(ParamValue::Tag::f));
}

TEST(EnumRange, DeclarationOrder) {
  std::vector<int> ids, useCases, statuses;
  for (ParameterId id : ::ndk::enum_range<ParameterId>()) ids.push_back(static_cast<int>(id));
  for (UseCase u : ::ndk::enum_range<UseCase>()) useCases.push_back(static_cast<int>(u));
  for (Status s : ::ndk::enum_range<Status>()) statuses.push_back(static_cast<int>(s));
  EXPECT_EQ((std::vector<int>{-1, 0, 1, 2, 3, 4}), ids);
  EXPECT_EQ((std::vector<int>{-1, 0, 1, 2, 3}), useCases);
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5, 6}), statuses);
}

// ---------------------------------------------------------------------------
// AudioPacket and ParamIdElementPair

TEST(AudioPacketParcel, RoundTripsIncludingEmptyAndLargeData) {
  AudioPacket empty;
  EXPECT_TRUE(RoundTrips(empty));

  AudioPacket p;
  p.processor_id = 0x61726c31;  // "arl1"
  for (int i = 0; i < 4096; ++i) p.data.push_back(static_cast<uint8_t>(i * 7));
  p.sampleRate = 5;
  p.format = 0;
  p.bitsPerSample = 1;
  p.numChannels = 2;
  p.reserved = 1;
  EXPECT_TRUE(RoundTrips(p));

  for (size_t n : {1u, 2u, 3u, 5u}) {  // lengths that need padding
    AudioPacket odd = p;
    odd.data.resize(n);
    odd.bitsPerSample = -1;
    EXPECT_TRUE(RoundTrips(odd)) << n;
  }
}

TEST(AudioPacketParcel, LayoutFieldsInOrder) {
  AudioPacket a;
  a.processor_id = -3;
  a.data = {0x00, 0xff, 0x80};
  a.sampleRate = 5;
  a.format = -1;
  a.bitsPerSample = 2;
  a.numChannels = 6;
  a.reserved = 1;
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, a.writeToParcel(p.get()));
  AParcel_setDataPosition(p.get(), 0);
  int32_t size = 0, id = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &size));
  EXPECT_EQ(AParcel_getDataSize(p.get()), size);
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &id));
  EXPECT_EQ(-3, id);
  std::vector<uint8_t> data;
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_readData(p.get(), &data));
  EXPECT_EQ(a.data, data);
  int8_t bytes[5] = {};
  for (int8_t& b : bytes) ASSERT_EQ(STATUS_OK, AParcel_readByte(p.get(), &b));
  EXPECT_EQ(5, bytes[0]);
  EXPECT_EQ(-1, bytes[1]);
  EXPECT_EQ(2, bytes[2]);
  EXPECT_EQ(6, bytes[3]);
  EXPECT_EQ(1, bytes[4]);
  EXPECT_TRUE(ParcelConsumed(p.get()));
}

TEST(AudioPacketParcel, EveryTruncationIsAnError) {
  AudioPacket a;
  a.processor_id = 1;
  a.data = {1, 2, 3, 4, 5, 6, 7, 8};
  a.reserved = 1;
  ExpectEveryTruncationFails(a);
}

TEST(ParamIdElementPairParcel, DefaultsRoundTripAndLayout) {
  ParamIdElementPair def;
  EXPECT_EQ(ParameterId::UNSPECIFIED, def.paramId);
  EXPECT_EQ(0, def.element);
  EXPECT_TRUE(RoundTrips(def));

  ParamIdElementPair pair;
  pair.paramId = ParameterId::BLOCK_LENGTH;
  pair.element = -9;
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, pair.writeToParcel(p.get()));
  EXPECT_EQ(12, AParcel_getDataSize(p.get()));
  AParcel_setDataPosition(p.get(), 0);
  int32_t words[3] = {};
  for (int32_t& w : words) ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &w));
  EXPECT_EQ(12, words[0]);
  EXPECT_EQ(3, words[1]);
  EXPECT_EQ(-9, words[2]);
  ExpectEveryTruncationFails(pair);
}

// ---------------------------------------------------------------------------
// Lists

TEST(ListParcel, EmptyAndFullListsRoundTrip) {
  EXPECT_TRUE(RoundTrips(std::vector<ParamValue>{}));
  EXPECT_TRUE(RoundTrips(std::vector<ParamIdElementPair>{}));
  EXPECT_TRUE(RoundTrips(std::vector<std::string>{}));
  EXPECT_TRUE(RoundTrips(Gen<std::vector<ParamValue>>(3, 4)));
  EXPECT_TRUE(RoundTrips(Gen<std::vector<ParamIdElementPair>>(3, 4)));
  EXPECT_TRUE(RoundTrips(std::vector<std::string>{"", "a", ""}));
}

TEST(ListParcel, ListOfUnionsIsCountThenMarkerTagValuePerElement) {
  std::vector<ParamValue> v = {ParamValue::make<ParamValue::i>(5), ParamValue::make<ParamValue::f>(1.5f)};
  Parcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), v));
  AParcel_setDataPosition(p.get(), 0);
  int32_t count = 0, m0 = 0, t0 = 0, v0 = 0, m1 = 0, t1 = 0;
  float v1 = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &count));
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &m0));
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &t0));
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &v0));
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &m1));
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &t1));
  ASSERT_EQ(STATUS_OK, AParcel_readFloat(p.get(), &v1));
  EXPECT_EQ(2, count);
  EXPECT_EQ(1, m0);
  EXPECT_EQ(0, t0);
  EXPECT_EQ(5, v0);
  EXPECT_EQ(1, m1);
  EXPECT_EQ(1, t1);
  EXPECT_EQ(1.5f, v1);
  EXPECT_TRUE(ParcelConsumed(p.get()));
}

TEST(ListParcel, AbsentListsAndBadElementsAreErrors) {
  // A null list where a list is required.
  Parcel absent = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(absent.get(), -1));
  AParcel_setDataPosition(absent.get(), 0);
  std::vector<ParamValue> values;
  EXPECT_NE(STATUS_OK, ::ndk::AParcel_readData(absent.get(), &values));

  // A list whose second element carries an unknown union tag.
  Parcel bad = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(bad.get(), 2));
  for (int32_t w : {1, 0, 7, 1, 9, 7}) ASSERT_EQ(STATUS_OK, AParcel_writeInt32(bad.get(), w));
  AParcel_setDataPosition(bad.get(), 0);
  EXPECT_EQ(STATUS_BAD_VALUE, ::ndk::AParcel_readData(bad.get(), &values));

  // A count far beyond what the parcel holds.
  Parcel huge = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(huge.get(), 1 << 28));
  AParcel_setDataPosition(huge.get(), 0);
  std::vector<ParamIdElementPair> pairs;
  EXPECT_NE(STATUS_OK, ::ndk::AParcel_readData(huge.get(), &pairs));

  ExpectEveryTruncationFails(Gen<std::vector<ParamIdElementPair>>(1, 1));
  ExpectEveryTruncationFails(Gen<std::vector<ParamValue>>(1, 1));
}

// ---------------------------------------------------------------------------
// Text forms

TEST(CommandResultText, GeneratedForm) {
  CommandResult r;
  r.strList = {"a", "b"};
  EXPECT_EQ("CommandResult{status: OK, value: 0.000000, strList: [a, b]}", r.toString());

  EXPECT_EQ("CommandResult{status: OK, value: 0.000000, strList: []}", CommandResult{}.toString());

  CommandResult e;
  e.status = Status::INVALID_ELEMENT;
  e.strList = {"Invalid element 9"};
  EXPECT_EQ("CommandResult{status: INVALID_ELEMENT, value: 0.000000, strList: [Invalid element 9]}", e.toString());

  CommandResult ro;
  ro.status = Status::READ_ONLY;
  ro.value = -2.5f;
  EXPECT_EQ("CommandResult{status: READ_ONLY, value: -2.500000, strList: []}", ro.toString());

  CommandResult seven;
  seven.status = static_cast<Status>(7);
  seven.value = 48000.0f;
  seven.strList = {"x", "", "y"};
  EXPECT_EQ("CommandResult{status: 7, value: 48000.000000, strList: [x, , y]}", seven.toString());
}

TEST(OtherTypesText, GeneratedForm) {
  EXPECT_EQ("ParamValue{i: -5}", ParamValue::make<ParamValue::i>(-5).toString());
  EXPECT_EQ("ParamValue{f: 1.500000}", ParamValue::make<ParamValue::f>(1.5f).toString());

  ParamIdElementPair pair;
  pair.paramId = ParameterId::TEST_MODE;
  pair.element = 3;
  EXPECT_EQ("ParamIdElementPair{paramId: TEST_MODE, element: 3}", pair.toString());
  EXPECT_EQ("ParamIdElementPair{paramId: UNSPECIFIED, element: 0}", ParamIdElementPair{}.toString());

  AudioPacket a;
  a.processor_id = 7;
  a.data = {1, 255};
  a.sampleRate = 5;
  a.bitsPerSample = 1;
  a.numChannels = 2;
  a.reserved = 1;
  EXPECT_EQ(
      "AudioPacket{processor_id: 7, data: [1, 255], sampleRate: 5, format: 0, bitsPerSample: 1, numChannels: 2, "
      "reserved: 1}",
      a.toString());
}

// ---------------------------------------------------------------------------
// Interface values in parcels

TEST(InterfaceParcel, NullCallbackTravelsAsNullBinder) {
  Parcel p = NewParcel();
  std::shared_ptr<IReceiveAudioCallback> none;
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), none));
  AParcel_setDataPosition(p.get(), 0);
  std::shared_ptr<IReceiveAudioCallback> back = ::ndk::SharedRefBase::make<RecordingCallback>();
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_readData(p.get(), &back));
  EXPECT_EQ(nullptr, back);
}

TEST(InterfaceParcel, LocalCallbackComesBackAsTheSameObject) {
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  Parcel p = NewParcel();
  std::shared_ptr<IReceiveAudioCallback> asInterface = cb;
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeData(p.get(), asInterface));
  AParcel_setDataPosition(p.get(), 0);
  std::shared_ptr<IReceiveAudioCallback> back;
  ASSERT_EQ(STATUS_OK, ::ndk::AParcel_readData(p.get(), &back));
  EXPECT_EQ(asInterface.get(), back.get());
  EXPECT_FALSE(back->isRemote());
}

TEST(InterfaceParcel, FromBinderRefusesAnotherInterface) {
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  EXPECT_EQ(nullptr, ILumx::fromBinder(cb->asBinder()));
  EXPECT_EQ(nullptr, ILumx::fromBinder(::ndk::SpAIBinder()));
  auto lumx = ::ndk::SharedRefBase::make<RecordingLumx>();
  std::shared_ptr<ILumx> back = ILumx::fromBinder(lumx->asBinder());
  EXPECT_EQ(static_cast<ILumx*>(lumx.get()), back.get());
  EXPECT_EQ(nullptr, IReceiveAudioCallback::fromBinder(lumx->asBinder()));
}

}  // namespace
}  // namespace lumx_aidl_test
