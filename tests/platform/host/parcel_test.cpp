// Parcel encoding: every value type round-trips, the wire layout is the
// documented one, and reads past the end or of malformed data fail cleanly.
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_to_string.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <limits>
#include <tuple>

#include "platform/host/binder/internal.h"
#include "test_util.h"

namespace {

using ndk::ScopedAParcel;

ScopedAParcel NewParcel() { return ScopedAParcel(AParcel_create()); }

void Rewind(const ScopedAParcel& p) { ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(p.get(), 0)); }

int32_t Int32At(const ScopedAParcel& p, size_t offset) {
  int32_t v;
  memcpy(&v, p.get()->data.data() + offset, 4);
  return v;
}

// A parcelable written the way the AIDL backend writes one: int32 size
// (including itself), the fields, back-patched.
struct Point {
  int32_t x = 0;
  std::string name;
  std::vector<float> weights;

  binder_status_t writeToParcel(AParcel* parcel) const {
    int32_t start = AParcel_getDataPosition(parcel);
    binder_status_t st = AParcel_writeInt32(parcel, 0);
    if (st != STATUS_OK) return st;
    if ((st = ndk::AParcel_writeData(parcel, x)) != STATUS_OK) return st;
    if ((st = ndk::AParcel_writeData(parcel, name)) != STATUS_OK) return st;
    if ((st = ndk::AParcel_writeData(parcel, weights)) != STATUS_OK) return st;
    int32_t end = AParcel_getDataPosition(parcel);
    AParcel_setDataPosition(parcel, start);
    AParcel_writeInt32(parcel, end - start);
    AParcel_setDataPosition(parcel, end);
    return STATUS_OK;
  }
  binder_status_t readFromParcel(const AParcel* parcel) {
    int32_t start = AParcel_getDataPosition(parcel);
    int32_t size = 0;
    binder_status_t st = AParcel_readInt32(parcel, &size);
    if (st != STATUS_OK) return st;
    if (size < 4) return STATUS_BAD_VALUE;
    if ((st = ndk::AParcel_readData(parcel, &x)) != STATUS_OK) return st;
    if ((st = ndk::AParcel_readData(parcel, &name)) != STATUS_OK) return st;
    if ((st = ndk::AParcel_readData(parcel, &weights)) != STATUS_OK) return st;
    return AParcel_setDataPosition(parcel, start + size);
  }
  bool operator==(const Point& o) const {
    return x == o.x && name == o.name && weights == o.weights;
  }
  std::string toString() const { return "Point{x: " + std::to_string(x) + "}"; }
};

enum class Mode : int8_t { OFF = 0, ON = 1, NEG = -1 };
enum class Big : int64_t { A = 1, B = 1LL << 40 };

TEST(ParcelTest, PrimitivesRoundTripWithFourByteSlots) {
  ScopedAParcel p = NewParcel();
  const int32_t i32 = -7;
  const uint32_t u32 = 0xfffffff0u;
  const int64_t i64 = -(1LL << 40);
  const uint64_t u64 = ~0ULL;
  const float f = 1.5f;
  const double d = -2.25;
  const char16_t c = u'\u00e9';
  const int8_t y = -1;
  ASSERT_EQ(STATUS_OK, lumx_test::WriteArgs(p.get(), i32, u32, i64, u64, f, d, true, c, y));
  // 4 + 4 + 8 + 8 + 4 + 8 + bool/char/byte in int32 slots.
  EXPECT_EQ(48, AParcel_getDataSize(p.get()));
  EXPECT_EQ(1, Int32At(p, 36));
  EXPECT_EQ(0xe9, Int32At(p, 40));
  EXPECT_EQ(-1, Int32At(p, 44)) << "a byte is sign-extended into its slot";
  Rewind(p);
  int32_t ri32 = 0;
  uint32_t ru32 = 0;
  int64_t ri64 = 0;
  uint64_t ru64 = 0;
  float rf = 0;
  double rd = 0;
  bool rb = false;
  char16_t rc = 0;
  int8_t ry = 0;
  ASSERT_EQ(STATUS_OK, lumx_test::ReadArgs(p.get(), &ri32, &ru32, &ri64, &ru64, &rf, &rd, &rb, &rc, &ry));
  EXPECT_EQ(std::make_tuple(i32, u32, i64, u64, f, d, true, c, y), std::make_tuple(ri32, ru32, ri64, ru64, rf, rd, rb, rc, ry));
  EXPECT_EQ(48, AParcel_getDataPosition(p.get()));
}

TEST(ParcelTest, ReadingPastTheEndFailsAndLeavesValueAlone) {
  ScopedAParcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 5));
  Rewind(p);
  int32_t v = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(p.get(), &v));
  v = 42;
  EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readInt32(p.get(), &v));
  EXPECT_EQ(42, v);
  // A 4-byte parcel holds no int64.
  Rewind(p);
  int64_t w = 9;
  EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readInt64(p.get(), &w));
  EXPECT_EQ(9, w);
  std::string s = "keep";
  Rewind(p);  // int32 5 claims 5 bytes that are not there
  EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, ndk::AParcel_readString(p.get(), &s));
  EXPECT_EQ(STATUS_BAD_VALUE, AParcel_setDataPosition(p.get(), -1));
  ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(p.get(), 1000));
  EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readInt32(p.get(), &v));
}

TEST(ParcelTest, StringsAreUtf8WithLengthTerminatorAndPadding) {
  ScopedAParcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeString(p.get(), std::string("abc")));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeString(p.get(), std::string("")));
  ASSERT_EQ(STATUS_OK, AParcel_writeString(p.get(), nullptr, -1));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeString(p.get(), std::string("h\xc3\xa9llo")));
  // "abc": count 3, "abc\0"; "": count 0, "\0" padded; null: -1.
  EXPECT_EQ(3, Int32At(p, 0));
  EXPECT_EQ(0, memcmp(p.get()->data.data() + 4, "abc", 4));
  EXPECT_EQ(0, Int32At(p, 8));
  EXPECT_EQ(-1, Int32At(p, 16));
  EXPECT_EQ(6, Int32At(p, 20));

  Rewind(p);
  std::string s;
  std::optional<std::string> o = "x";
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readString(p.get(), &s));
  EXPECT_EQ("abc", s);
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readString(p.get(), &s));
  EXPECT_EQ("", s);
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readString(p.get(), &o));
  EXPECT_FALSE(o.has_value());
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readString(p.get(), &s));
  EXPECT_EQ("h\xc3\xa9llo", s);

  // A null string is refused where a value is required.
  ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(p.get(), 16));
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readString(p.get(), &s));

  ScopedAParcel q = NewParcel();
  EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeString(q.get(), nullptr, 0));
  EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeString(q.get(), "x", -1));
}

TEST(ParcelTest, StringsAndroidWouldRefuseAreRefusedBothWays) {
  // Android converts to UTF-16 and refuses a string whose last character is
  // cut short; other stray bytes pass.
  const struct {
    const char* bytes;
    binder_status_t st;
  } cases[] = {
      {"caf\xc3\xa9", STATUS_OK},          {"\xe2\x82\xac", STATUS_OK},
      {"\xf0\x9f\x98\x80", STATUS_OK},    {"stray \x80 byte", STATUS_OK},
      {"\xc3" "A", STATUS_OK},              {"caf\xc3", STATUS_BAD_VALUE},
      {"\xe2\x82", STATUS_BAD_VALUE},       {"\xf0\x9f\x98", STATUS_BAD_VALUE},
      {"x\xf8", STATUS_BAD_VALUE},
  };
  for (const auto& c : cases) {
    const std::string text(c.bytes);
    ndk::ScopedAParcel p(AParcel_create());
    EXPECT_EQ(c.st, ndk::AParcel_writeString(p.get(), text)) << text;
    EXPECT_EQ(c.st, ndk::AParcel_writeVector(p.get(), std::vector<std::string>{"ok", text})) << text;
    // The same bytes arriving from a peer that did not check them.
    ndk::ScopedAParcel in(AParcel_create());
    AParcel_writeInt32(in.get(), static_cast<int32_t>(text.size()));
    std::vector<int8_t> raw(text.begin(), text.end());
    raw.push_back(0);
    for (size_t i = 0; i < raw.size(); i += 4) {
      int32_t word = 0;
      memcpy(&word, raw.data() + i, std::min<size_t>(4, raw.size() - i));
      AParcel_writeInt32(in.get(), word);
    }
    AParcel_setDataPosition(in.get(), 0);
    std::string got;
    EXPECT_EQ(c.st, ndk::AParcel_readString(in.get(), &got)) << text;
    if (c.st == STATUS_OK) {
      EXPECT_EQ(text, got);
    }
  }
}

TEST(ParcelTest, StringAllocatorRefusalsMapToStatuses) {
  ScopedAParcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeString(p.get(), "abc", 3));
  ASSERT_EQ(STATUS_OK, AParcel_writeString(p.get(), nullptr, -1));
  Rewind(p);
  std::vector<int32_t> seen;
  auto refuse = [](void* data, int32_t length, char**) {
    static_cast<std::vector<int32_t>*>(data)->push_back(length);
    return false;
  };
  EXPECT_EQ(STATUS_NO_MEMORY, AParcel_readString(p.get(), &seen, refuse));
  ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(p.get(), 8));
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, AParcel_readString(p.get(), &seen, refuse));
  EXPECT_EQ((std::vector<int32_t>{4, -1}), seen) << "size includes the terminator";
}

TEST(ParcelTest, PrimitiveArraysRoundTripIncludingNullAndEmpty) {
  ScopedAParcel p = NewParcel();
  const auto arrays = std::make_tuple(std::vector<int32_t>{1, -2, 3}, std::vector<uint8_t>{1, 2, 3, 4, 255},
                                      std::vector<int64_t>{1LL << 50, -1}, std::vector<float>{0.5f},
                                      std::vector<double>{}, std::vector<bool>{true, false, true},
                                      std::vector<char16_t>{u'a', u'\u20ac'}, std::vector<uint64_t>{7});
  ASSERT_EQ(STATUS_OK, std::apply([&](const auto&... v) { return lumx_test::WriteArgs(p.get(), v...); }, arrays));
  EXPECT_EQ(5, Int32At(p, 16));
  EXPECT_EQ(2, Int32At(p, 28)) << "5 packed bytes padded to 8, then the next count";
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(p.get(), std::optional<std::vector<int32_t>>()));
  Rewind(p);
  auto back = arrays;
  std::get<4>(back) = {9.0};
  ASSERT_EQ(STATUS_OK, std::apply([&](auto&... v) { return lumx_test::ReadArgs(p.get(), &v...); }, back));
  EXPECT_EQ(arrays, back);
  std::optional<std::vector<int32_t>> none = std::vector<int32_t>{1};
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readNullableData(p.get(), &none));
  EXPECT_FALSE(none.has_value());
  EXPECT_EQ(AParcel_getDataSize(p.get()), AParcel_getDataPosition(p.get()));
  // A null array where one is required.
  ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(p.get(), AParcel_getDataSize(p.get()) - 4));
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(p.get(), &std::get<0>(back)));
}

TEST(ParcelTest, ArrayArgumentAndLengthChecks) {
  ScopedAParcel p = NewParcel();
  int32_t one = 1;
  EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeInt32Array(p.get(), nullptr, 2));
  EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeInt32Array(p.get(), &one, -1));
  EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeInt32Array(p.get(), nullptr, -2));
  EXPECT_EQ(0, AParcel_getDataSize(p.get())) << "refused writes leave nothing";
  EXPECT_EQ(STATUS_OK, AParcel_writeInt32Array(p.get(), nullptr, 0));

  // A length below -1, and a length larger than the data.
  ScopedAParcel q = NewParcel();
  AParcel_writeInt32(q.get(), -2);
  AParcel_writeInt32(q.get(), 1000);
  AParcel_writeInt32(q.get(), 1);
  Rewind(q);
  std::vector<int32_t> v;
  EXPECT_EQ(STATUS_BAD_VALUE, ndk::AParcel_readData(q.get(), &v));
  ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(q.get(), 4));
  EXPECT_EQ(STATUS_NO_MEMORY, ndk::AParcel_readData(q.get(), &v));
  ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(q.get(), 4));
  std::vector<std::string> sv;
  EXPECT_EQ(STATUS_NO_MEMORY, ndk::AParcel_readData(q.get(), &sv));
  ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(q.get(), 4));
  std::vector<Point> pv;
  EXPECT_EQ(STATUS_NO_MEMORY, ndk::AParcel_readData(q.get(), &pv));
}

TEST(ParcelTest, StringArraysWithNullElements) {
  ScopedAParcel p = NewParcel();
  std::vector<std::string> v{"one", "", "three"};
  std::optional<std::vector<std::optional<std::string>>> nv{{"a", std::nullopt}};
  std::optional<std::vector<std::optional<std::string>>> nnv;
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(p.get(), v));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeVector(p.get(), nv));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(p.get(), nnv));
  Rewind(p);
  std::vector<std::string> rv;
  std::optional<std::vector<std::optional<std::string>>> rnv;
  std::optional<std::vector<std::optional<std::string>>> rnnv{{"x"}};
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readData(p.get(), &rv));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readVector(p.get(), &rnv));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readNullableData(p.get(), &rnnv));
  EXPECT_EQ(v, rv);
  EXPECT_EQ(nv, rnv);
  EXPECT_FALSE(rnnv.has_value());
  // A null element in a String[] is refused.
  ScopedAParcel q = NewParcel();
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeVector(q.get(), nv));
  Rewind(q);
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(q.get(), &rv));
}

TEST(ParcelTest, ParcelablesCarryMarkerAndSizeAndSkipUnknownTrailingFields) {
  ScopedAParcel p = NewParcel();
  Point a{3, "a", {1.0f, 2.0f}};
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(p.get(), a));
  EXPECT_EQ(1, Int32At(p, 0)) << "non-null marker";
  EXPECT_EQ(AParcel_getDataSize(p.get()) - 4, Int32At(p, 4)) << "size includes itself";
  Rewind(p);
  Point b;
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readData(p.get(), &b));
  EXPECT_EQ(a, b);

  // Nullable forms and a required one that is absent.
  ScopedAParcel q = NewParcel();
  std::optional<Point> none;
  std::unique_ptr<Point> heap(new Point{5, "h", {}});
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(q.get(), none));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(q.get(), heap));
  EXPECT_EQ(0, Int32At(q, 0));
  Rewind(q);
  std::optional<Point> rnone = Point{};
  std::unique_ptr<Point> rheap;
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readNullableData(q.get(), &rnone));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readNullableData(q.get(), &rheap));
  EXPECT_FALSE(rnone.has_value());
  ASSERT_NE(nullptr, rheap);
  EXPECT_EQ(*heap, *rheap);
  Rewind(q);
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(q.get(), &b));

  // Vectors of parcelables: count, then marker + body per element.
  ScopedAParcel r = NewParcel();
  std::vector<Point> pts{{1, "x", {}}, {2, "y", {3.0f}}};
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(r.get(), pts));
  EXPECT_EQ(2, Int32At(r, 0));
  EXPECT_EQ(1, Int32At(r, 4));
  Rewind(r);
  std::vector<Point> rpts;
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readData(r.get(), &rpts));
  EXPECT_EQ(pts, rpts);
}

TEST(ParcelTest, EnumsTravelAsTheirBackingType) {
  ScopedAParcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(p.get(), Mode::NEG));
  std::vector<Mode> modes{Mode::ON, Mode::NEG, Mode::OFF};
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(p.get(), modes));
  std::vector<Big> bigs{Big::B};
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(p.get(), bigs));
  EXPECT_EQ(-1, Int32At(p, 0)) << "one byte enum value fills an int32 slot";
  EXPECT_EQ(3, Int32At(p, 4));
  EXPECT_EQ(0x00ff01, Int32At(p, 8)) << "a byte-enum vector is packed";
  Rewind(p);
  Mode m = Mode::OFF;
  std::vector<Mode> rmodes;
  std::vector<Big> rbigs;
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readData(p.get(), &m));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readData(p.get(), &rmodes));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readData(p.get(), &rbigs));
  EXPECT_EQ(Mode::NEG, m);
  EXPECT_EQ(modes, rmodes);
  EXPECT_EQ(bigs, rbigs);
}

TEST(ParcelTest, OutArraySizeAndResizeBounds) {
  ScopedAParcel p = NewParcel();
  std::vector<int32_t> v(7);
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeVectorSize(p.get(), v));
  AParcel_writeInt32(p.get(), -1);
  AParcel_writeInt32(p.get(), 1000001);
  Rewind(p);
  std::vector<int32_t> r;
  ASSERT_EQ(STATUS_OK, ndk::AParcel_resizeVector(p.get(), &r));
  EXPECT_EQ(7u, r.size());
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_resizeVector(p.get(), &r));
  EXPECT_EQ(STATUS_NO_MEMORY, ndk::AParcel_resizeVector(p.get(), &r));
}

TEST(ParcelTest, StatusHeaderLayoutAndRoundTrip) {
  ScopedAParcel p = NewParcel();
  ndk::ScopedAStatus ok = ndk::ScopedAStatus::ok();
  ASSERT_EQ(STATUS_OK, AParcel_writeStatusHeader(p.get(), ok.get()));
  EXPECT_EQ(4, AParcel_getDataSize(p.get()));
  EXPECT_EQ(0, Int32At(p, 0));

  ScopedAParcel q = NewParcel();
  ndk::ScopedAStatus ss = ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(42, "bad");
  ASSERT_EQ(STATUS_OK, AParcel_writeStatusHeader(q.get(), ss.get()));
  // ex, "bad" (4 + 4), empty stack trace, code.
  EXPECT_EQ(EX_SERVICE_SPECIFIC, Int32At(q, 0));
  EXPECT_EQ(3, Int32At(q, 4));
  EXPECT_EQ(0, Int32At(q, 12));
  EXPECT_EQ(42, Int32At(q, 16));
  Rewind(q);
  ndk::ScopedAStatus back;
  ASSERT_EQ(STATUS_OK, AParcel_readStatusHeader(q.get(), back.getR()));
  EXPECT_EQ(EX_SERVICE_SPECIFIC, back.getExceptionCode());
  EXPECT_EQ(42, back.getServiceSpecificError());
  EXPECT_STREQ("bad", back.getMessage());

  ScopedAParcel r = NewParcel();
  ndk::ScopedAStatus tf = ndk::ScopedAStatus::fromStatus(STATUS_NO_MEMORY);
  EXPECT_EQ(STATUS_NO_MEMORY, AParcel_writeStatusHeader(r.get(), tf.get()))
      << "a transport failure is returned, not written";
  EXPECT_EQ(0, AParcel_getDataSize(r.get()));

  // A "fat" reply header (-128, size) is skipped and means success.
  ScopedAParcel s = NewParcel();
  AParcel_writeInt32(s.get(), -128);
  AParcel_writeInt32(s.get(), 12);
  AParcel_writeInt64(s.get(), 0);
  AParcel_writeInt32(s.get(), 77);
  Rewind(s);
  ndk::ScopedAStatus fat;
  ASSERT_EQ(STATUS_OK, AParcel_readStatusHeader(s.get(), fat.getR()));
  EXPECT_TRUE(fat.isOk());
  int32_t after = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(s.get(), &after));
  EXPECT_EQ(77, after);

  // Truncated header.
  ScopedAParcel t = NewParcel();
  AParcel_writeInt32(t.get(), EX_ILLEGAL_STATE);
  Rewind(t);
  ndk::ScopedAStatus trunc;
  EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readStatusHeader(t.get(), trunc.getR()));
}

binder_status_t NoopTransact(AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
  return STATUS_OK;
}
void* CreateUd(void* a) { return a; }
void DestroyUd(void*) {}

TEST(ParcelTest, StrongBindersAndDescriptorsInParcels) {
  static AIBinder_Class* clazz =
      AIBinder_Class_define("lumx.test.IParcelObj", CreateUd, DestroyUd, NoopTransact);
  ndk::SpAIBinder obj(AIBinder_new(clazz, nullptr));
  ScopedAParcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p.get(), 9));
  ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(p.get(), obj.get()));
  ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(p.get(), nullptr));
  EXPECT_EQ(2, AIBinder_debugGetRefCount(obj.get())) << "the parcel holds a reference";

  // appendFrom copies the object along with its slot.
  ScopedAParcel q = NewParcel();
  AParcel_writeInt64(q.get(), 1);
  ASSERT_EQ(STATUS_OK, AParcel_appendFrom(p.get(), q.get(), 4, 16));
  EXPECT_EQ(3, AIBinder_debugGetRefCount(obj.get()));
  ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(q.get(), 8));
  ndk::SpAIBinder back, none;
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readNullableStrongBinder(q.get(), &back));
  EXPECT_EQ(obj.get(), back.get());
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readNullableStrongBinder(q.get(), &none));
  EXPECT_EQ(nullptr, none.get());
  ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(q.get(), 16));
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readRequiredStrongBinder(q.get(), &none));
  q.set(nullptr);
  p.set(nullptr);
  back.set(nullptr);
  EXPECT_EQ(1, AIBinder_debugGetRefCount(obj.get())) << "parcels released their references";

  // A slot pointing at no object is a type error, not a crash.
  ScopedAParcel bad = NewParcel();
  AParcel_writeInt32(bad.get(), 1);
  AParcel_writeInt32(bad.get(), 5);
  Rewind(bad);
  AIBinder* raw = nullptr;
  EXPECT_EQ(STATUS_BAD_TYPE, AParcel_readStrongBinder(bad.get(), &raw));
  EXPECT_EQ(nullptr, raw);

  // File descriptors: the parcel keeps its own duplicate.
  ScopedAParcel f = NewParcel();
  int pipefd[2];
  ASSERT_EQ(0, pipe(pipefd));
  ASSERT_EQ(STATUS_OK, AParcel_writeParcelFileDescriptor(f.get(), pipefd[1]));
  close(pipefd[1]);
  Rewind(f);
  ndk::ScopedFileDescriptor w;
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readRequiredParcelFileDescriptor(f.get(), &w));
  ASSERT_EQ(1, write(w.get(), "z", 1));
  char c = 0;
  ASSERT_EQ(1, read(pipefd[0], &c, 1));
  EXPECT_EQ('z', c);
  close(pipefd[0]);
}

TEST(ParcelTest, GarbageNeverReadsOutOfBounds) {
  // Every reader on every prefix of a small random-looking buffer returns a
  // status; the sanitizers catch any out-of-bounds access.
  std::vector<uint8_t> junk(4, 0xff);  // -1 early
  uint32_t x = 12345;
  while (junk.size() < 64) junk.push_back(static_cast<uint8_t>((x = x * 1103515245 + 12345) >> 16));
  const std::vector<std::function<void(const AParcel*)>> readers = {
      [](const AParcel* p) { std::string v; (void)ndk::AParcel_readData(p, &v); },
      [](const AParcel* p) { std::vector<int32_t> v; (void)ndk::AParcel_readData(p, &v); },
      [](const AParcel* p) { std::vector<uint8_t> v; (void)ndk::AParcel_readData(p, &v); },
      [](const AParcel* p) { std::vector<std::string> v; (void)ndk::AParcel_readData(p, &v); },
      [](const AParcel* p) { std::vector<Point> v; (void)ndk::AParcel_readData(p, &v); },
      [](const AParcel* p) { std::vector<bool> v; (void)ndk::AParcel_readData(p, &v); },
      [](const AParcel* p) { Point v; (void)ndk::AParcel_readData(p, &v); },
      [](const AParcel* p) { ndk::ScopedAStatus v; (void)AParcel_readStatusHeader(p, v.getR()); },
      [](const AParcel* p) {
        AIBinder* b = nullptr;
        (void)AParcel_readStrongBinder(p, &b);
        EXPECT_EQ(nullptr, b) << "a parcel without objects yields no binder";
      },
  };
  for (size_t n = 0; n <= junk.size(); ++n) {
    ScopedAParcel p = NewParcel();
    lumx_binder::ParcelSetData(p.get(), std::vector<uint8_t>(junk.begin(), junk.begin() + n));
    for (size_t start = 0; start < n + 4; start += 4) {
      for (const auto& read : readers) {
        AParcel_setDataPosition(p.get(), static_cast<int32_t>(start));
        read(p.get());
      }
    }
  }
}

TEST(ToStringTest, FormatsLikeGeneratedToString) {
  using android::internal::ToString;
  EXPECT_EQ("true", ToString(true));
  EXPECT_EQ("0.000000", ToString(0.0f));
  EXPECT_EQ("-3", ToString(int8_t{-3}));
  EXPECT_EQ("abc", ToString(std::string("abc")));
  EXPECT_EQ("[1, 2]", ToString(std::vector<int32_t>{1, 2}));
  EXPECT_EQ("(null)", ToString(std::optional<std::string>()));
  EXPECT_EQ("x", ToString(std::optional<std::string>("x")));
  EXPECT_EQ("Point{x: 4}", ToString(Point{4, "", {}}));
  EXPECT_EQ("[Point{x: 1}]", ToString(std::vector<Point>{Point{1, "", {}}}));
  EXPECT_EQ("binder:0", ToString(ndk::SpAIBinder()));
}

}  // namespace
