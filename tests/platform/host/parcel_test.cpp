// Parcel encoding: every value type round-trips, the wire layout is the
// documented one, and reads past the end or of malformed data fail cleanly.
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_to_string.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <memory>
#include <optional>
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
    const int32_t start = AParcel_getDataPosition(parcel);
    const binder_status_t st = lumx_test::WriteArgs(parcel, int32_t{0}, x, name, weights);
    const int32_t end = AParcel_getDataPosition(parcel);
    AParcel_setDataPosition(parcel, start);
    AParcel_writeInt32(parcel, end - start);
    AParcel_setDataPosition(parcel, end);
    return st;
  }
  binder_status_t readFromParcel(const AParcel* parcel) {
    const int32_t start = AParcel_getDataPosition(parcel);
    int32_t size = 0;
    binder_status_t st = lumx_test::ReadArgs(parcel, &size, &x, &name, &weights);
    return st != STATUS_OK ? st : size < 4 ? STATUS_BAD_VALUE : AParcel_setDataPosition(parcel, start + size);
  }
  bool operator==(const Point& o) const {
    return x == o.x && name == o.name && weights == o.weights;
  }
  std::string toString() const { return "Point{x: " + std::to_string(x) + "}"; }
};

enum class Mode : int8_t { OFF = 0, ON = 1, NEG = -1 };
enum class Big : int64_t { A = 1, B = 1LL << 40 };

// The parcel's bytes as 32-bit words.
std::vector<int32_t> WordsOf(const ScopedAParcel& p) {
  std::vector<int32_t> w(p.get()->data.size() / 4);
  memcpy(w.data(), p.get()->data.data(), w.size() * 4);
  return w;
}
template <typename T>
std::vector<int32_t> Bits(T v) {
  std::vector<int32_t> w(sizeof(T) / 4);
  memcpy(w.data(), &v, sizeof(T));
  return w;
}
std::vector<int32_t> Cat(std::initializer_list<std::vector<int32_t>> parts) {
  std::vector<int32_t> out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

template <typename T>
constexpr bool kNullable = false;
template <typename T>
constexpr bool kNullable<std::optional<T>> = true;
template <typename T>
binder_status_t Write(AParcel* p, const T& v) {
  if constexpr (kNullable<T>) {
    return ndk::AParcel_writeNullableData(p, v);
  } else {
    return lumx_test::WriteArg(p, v);  // also the unsigned scalars AIDL lacks
  }
}
template <typename T>
binder_status_t Read(const AParcel* p, T* v) {
  if constexpr (kNullable<T>) {
    return ndk::AParcel_readNullableData(p, v);
  } else {
    return lumx_test::ReadArg(p, v);
  }
}

// `v` is written as `words` (unless none are given), reads back equal with
// nothing left over, and every whole-word prefix of it fails to read.
template <typename T>
void ExpectWire(const T& v, const std::vector<int32_t>& words) {
  ScopedAParcel p = NewParcel();
  ASSERT_EQ(STATUS_OK, Write(p.get(), v));
  if (!words.empty()) {
    EXPECT_EQ(words, WordsOf(p));
  }
  Rewind(p);
  T back{};
  ASSERT_EQ(STATUS_OK, Read(p.get(), &back));
  EXPECT_TRUE(back == v);
  EXPECT_EQ(AParcel_getDataSize(p.get()), AParcel_getDataPosition(p.get()));
  for (int32_t n = 0; n < AParcel_getDataSize(p.get()); n += 4) {
    ScopedAParcel cut = NewParcel();
    if (n > 0) {
      ASSERT_EQ(STATUS_OK, AParcel_appendFrom(p.get(), cut.get(), 0, n));
    }
    Rewind(cut);
    T part{};
    EXPECT_NE(STATUS_OK, Read(cut.get(), &part)) << "cut to " << n << " bytes";
  }
}
#define EXPECT_WIRE(...)             \
  do {                               \
    SCOPED_TRACE(#__VA_ARGS__);      \
    ExpectWire(__VA_ARGS__);         \
  } while (0)

TEST(ParcelTest, WireLayoutRoundTripAndTruncationOfEveryType) {
  using std::optional;
  using std::string;
  using std::vector;
  // Scalars: four-byte slots; bool, char16 and byte sign-extended into one.
  EXPECT_WIRE(int32_t{-7}, {-7});
  EXPECT_WIRE(uint32_t{0xfffffff0u}, {-16});
  EXPECT_WIRE(int64_t{-(1LL << 40)}, {0, -256});
  EXPECT_WIRE(~uint64_t{0}, {-1, -1});
  EXPECT_WIRE(1.5f, Bits(1.5f));
  EXPECT_WIRE(-2.25, Bits(-2.25));
  EXPECT_WIRE(true, {1});
  EXPECT_WIRE(char16_t{u'\u00e9'}, {0xe9});
  EXPECT_WIRE(int8_t{-1}, {-1});
  // Strings: UTF-8 length, bytes and NUL padded to 4; null is -1.
  EXPECT_WIRE(string("abc"), {3, 0x00636261});
  EXPECT_WIRE(string(""), {0, 0});
  EXPECT_WIRE(string("h\xc3\xa9llo"), {6, 0x6ca9c368, 0x00006f6c});
  EXPECT_WIRE(optional<string>(), {-1});
  // Arrays: count, then elements; bytes packed and padded.
  EXPECT_WIRE(vector<int32_t>{1, -2, 3}, {3, 1, -2, 3});
  EXPECT_WIRE(vector<uint8_t>{1, 2, 3, 4, 255}, {5, 0x04030201, 0xff});
  EXPECT_WIRE(vector<int64_t>{1LL << 50, -1}, {2, 0, 1 << 18, -1, -1});
  EXPECT_WIRE(vector<float>{0.5f}, Cat({{1}, Bits(0.5f)}));
  EXPECT_WIRE(vector<double>{}, {0});
  EXPECT_WIRE(vector<bool>{true, false, true}, {});
  EXPECT_WIRE(vector<char16_t>{u'a', u'\u20ac'}, {});
  EXPECT_WIRE(vector<uint64_t>{7}, {1, 7, 0});
  EXPECT_WIRE(optional<vector<int32_t>>(), {-1});
  EXPECT_WIRE(vector<string>{"one", "", "x"}, {3, 3, 0x00656e6f, 0, 0, 1, 0x78});
  EXPECT_WIRE(optional<vector<optional<string>>>({"a", std::nullopt}), {2, 1, 0x61, -1});
  // Enums as their backing type; a byte-enum vector is packed.
  EXPECT_WIRE(Mode::NEG, {-1});
  EXPECT_WIRE(vector<Mode>{Mode::ON, Mode::NEG, Mode::OFF}, {3, 0x00ff01});
  EXPECT_WIRE(vector<Big>{Big::B}, {1, 0, 256});
  // Parcelables: non-null marker, size counting itself, fields.
  EXPECT_WIRE(Point{3, "a", {1.0f, 2.0f}}, Cat({{1, 28, 3, 1, 0x61, 2}, Bits(1.0f), Bits(2.0f)}));
  EXPECT_WIRE(optional<Point>(), {0});
  EXPECT_WIRE(vector<Point>{{1, "x", {}}, {2, "y", {3.0f}}},
             Cat({{2, 1, 20, 1, 1, 0x78, 0}, {1, 24, 2, 1, 0x79, 1}, Bits(3.0f)}));
}

// Values that may be null in one form are refused where they are required.
TEST(ParcelTest, RequiredValuesRefuseNullAndNullableFormsCarryIt) {
  ScopedAParcel p = NewParcel();
  for (int32_t w : {-1, 0}) AParcel_writeInt32(p.get(), w);  // null string/array, null parcelable
  const std::vector<std::pair<std::string, std::function<binder_status_t(const AParcel*)>>> required = {
      {"string", [](const AParcel* q) { std::string v; return ndk::AParcel_readString(q, &v); }},
      {"int32[]", [](const AParcel* q) { std::vector<int32_t> v; return ndk::AParcel_readData(q, &v); }},
  };
  for (const auto& [what, read] : required) {
    AParcel_setDataPosition(p.get(), 0);
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, read(p.get())) << what;
  }
  Point pt;
  AParcel_setDataPosition(p.get(), 4);
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(p.get(), &pt));
  // A null element in a String[].
  ScopedAParcel q = NewParcel();
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeVector(q.get(), std::optional<std::vector<std::optional<std::string>>>(
                                                             {"a", std::nullopt})));
  Rewind(q);
  std::vector<std::string> sv;
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(q.get(), &sv));
  // unique_ptr is the other nullable parcelable form.
  ScopedAParcel r = NewParcel();
  std::unique_ptr<Point> heap(new Point{5, "h", {}}), none, back;
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(r.get(), none));
  ASSERT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(r.get(), heap));
  EXPECT_EQ(0, Int32At(r, 0));
  Rewind(r);
  back.reset(new Point{});
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readNullableData(r.get(), &back));
  EXPECT_EQ(nullptr, back);
  ASSERT_EQ(STATUS_OK, ndk::AParcel_readNullableData(r.get(), &back));
  ASSERT_NE(nullptr, back);
  EXPECT_EQ(*heap, *back);
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
  ASSERT_EQ(STATUS_OK, AParcel_writeStatusHeader(p.get(), ndk::ScopedAStatus::ok().get()));
  EXPECT_EQ(std::vector<int32_t>{0}, WordsOf(p));

  // ex, "bad" (4 + 4), empty stack trace, code.
  ScopedAParcel q = NewParcel();
  ndk::ScopedAStatus ss = ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(42, "bad");
  ASSERT_EQ(STATUS_OK, AParcel_writeStatusHeader(q.get(), ss.get()));
  EXPECT_EQ((std::vector<int32_t>{EX_SERVICE_SPECIFIC, 3, 0x00646162, 0, 42}), WordsOf(q));
  Rewind(q);
  ndk::ScopedAStatus back;
  ASSERT_EQ(STATUS_OK, AParcel_readStatusHeader(q.get(), back.getR()));
  EXPECT_EQ(std::make_tuple(EX_SERVICE_SPECIFIC, 42, std::string("bad")),
            std::make_tuple(back.getExceptionCode(), back.getServiceSpecificError(), std::string(back.getMessage())));

  ScopedAParcel r = NewParcel();
  EXPECT_EQ(STATUS_NO_MEMORY, AParcel_writeStatusHeader(r.get(), ndk::ScopedAStatus::fromStatus(STATUS_NO_MEMORY).get()))
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
