// AParcel: a growable byte buffer with a cursor, plus the binder objects and
// file descriptors written into it. Every read is bounds-checked, so a parcel
// built from untrusted bytes can only produce error statuses.
#include <android/binder_parcel.h>
#include <android/binder_parcel_platform.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <limits>

#include "common/utf8_text.h"
#include "internal.h"

using lumx_binder::DecStrong;
using lumx_binder::IncStrong;
using lumx_binder::kSlotBinder;
using lumx_binder::kSlotFd;
using lumx_binder::kSlotNull;

namespace {

// A parcel never grows beyond this (a frame is far smaller anyway).
constexpr size_t kMaxParcelSize = 256u << 20;

size_t Pad4(size_t n) { return (n + 3) & ~static_cast<size_t>(3); }

size_t Remaining(const AParcel* p) { return p->pos >= p->data.size() ? 0 : p->data.size() - p->pos; }

// Makes room for `len` bytes (padded to 4, padding zeroed) at the cursor and
// advances it.
binder_status_t Reserve(AParcel* p, size_t len, uint8_t** dst) {
  const size_t padded = Pad4(len);
  if (p->pos > kMaxParcelSize || padded > kMaxParcelSize - p->pos) return STATUS_NO_MEMORY;
  const size_t end = p->pos + padded;
  if (end > p->data.size()) p->data.resize(end);
  *dst = p->data.data() + p->pos;
  if (padded > len) memset(*dst + len, 0, padded - len);
  p->pos = end;
  return STATUS_OK;
}

binder_status_t WriteRaw(AParcel* p, const void* src, size_t len) {
  uint8_t* dst = nullptr;
  binder_status_t st = Reserve(p, len, &dst);
  if (st != STATUS_OK) return st;
  if (len > 0) memcpy(dst, src, len);
  return STATUS_OK;
}

// Points at `len` bytes at the cursor and advances it past them (and their
// padding); null if the parcel does not hold that many.
const uint8_t* Consume(const AParcel* p, size_t len) {
  const size_t padded = Pad4(len);
  if (padded < len || padded > Remaining(p)) return nullptr;
  const uint8_t* src = p->data.data() + p->pos;
  p->pos += padded;
  return src;
}

template <typename T>
binder_status_t WriteValue(AParcel* p, T v) {
  if (p == nullptr) return STATUS_UNEXPECTED_NULL;
  return WriteRaw(p, &v, sizeof(v));
}

template <typename T>
binder_status_t ReadValue(const AParcel* p, T* v) {
  if (p == nullptr || v == nullptr) return STATUS_UNEXPECTED_NULL;
  const uint8_t* src = Consume(p, sizeof(T));
  if (src == nullptr) return STATUS_NOT_ENOUGH_DATA;
  memcpy(v, src, sizeof(T));
  return STATUS_OK;
}

binder_status_t ReadInt32(const AParcel* p, int32_t* v) { return ReadValue(p, v); }

// Length checks shared by the array writers.
binder_status_t CheckArrayArgs(const void* data, int32_t length) {
  if (length < -1) return STATUS_BAD_VALUE;
  if (data == nullptr && length > 0) return STATUS_BAD_VALUE;
  if (data != nullptr && length < 0) return STATUS_BAD_VALUE;
  return STATUS_OK;
}

// Arrays written through callbacks get opaque user data, which says nothing
// about nullness: length -1 alone makes a null array (the NDK's helpers pass
// the vector's address for an empty std::optional).
binder_status_t CheckOpaqueArrayArgs(const void* data, int32_t length) {
  if (length < -1) return STATUS_BAD_VALUE;
  if (data == nullptr && length > 0) return STATUS_BAD_VALUE;
  return STATUS_OK;
}

template <typename T>
binder_status_t WritePackedArray(AParcel* p, const T* data, int32_t length) {
  if (p == nullptr) return STATUS_UNEXPECTED_NULL;
  binder_status_t st = CheckArrayArgs(data, length);
  if (st != STATUS_OK) return st;
  st = WriteValue<int32_t>(p, length);
  if (st != STATUS_OK || length <= 0) return st;
  return WriteRaw(p, data, static_cast<size_t>(length) * sizeof(T));
}

template <typename T>
binder_status_t ReadPackedArray(const AParcel* p, void* arrayData,
                                bool (*allocator)(void*, int32_t, T**)) {
  if (p == nullptr || allocator == nullptr) return STATUS_UNEXPECTED_NULL;
  const size_t start = p->pos;
  int32_t length = 0;
  binder_status_t st = ReadInt32(p, &length);
  if (st != STATUS_OK) return st;
  if (length < -1) {
    p->pos = start;
    return STATUS_BAD_VALUE;
  }
  T* buf = nullptr;
  if (length == -1) return allocator(arrayData, -1, &buf) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
  const size_t bytes = static_cast<size_t>(length) * sizeof(T);
  if (Pad4(bytes) > Remaining(p)) return STATUS_NO_MEMORY;
  if (!allocator(arrayData, length, &buf)) return STATUS_NO_MEMORY;
  if (length > 0 && buf == nullptr) return STATUS_NO_MEMORY;
  const uint8_t* src = Consume(p, bytes);
  if (bytes > 0) memcpy(buf, src, bytes);
  return STATUS_OK;
}

// Reads an int32 element count for an array whose elements take at least
// 4 bytes each; -1 means null.
binder_status_t ReadCount(const AParcel* p, int32_t* length) {
  binder_status_t st = ReadInt32(p, length);
  if (st != STATUS_OK) return st;
  if (*length < -1) return STATUS_BAD_VALUE;
  if (*length > 0 && static_cast<size_t>(*length) > Remaining(p) / 4) return STATUS_NO_MEMORY;
  return STATUS_OK;
}

// Strings travel as UTF-8 here, but Android converts them to UTF-16 and
// refuses those whose last character is cut short; so do we, both ways, so
// that a host test meets every string a device would refuse.
binder_status_t WriteStringImpl(AParcel* p, const char* s, int32_t length) {
  if (s == nullptr) {
    if (length != -1) return STATUS_BAD_VALUE;
    return WriteValue<int32_t>(p, -1);
  }
  if (length < 0) return STATUS_BAD_VALUE;
  if (!lumx::Utf8Sendable(s, static_cast<size_t>(length))) return STATUS_BAD_VALUE;
  binder_status_t st = WriteValue<int32_t>(p, length);
  if (st != STATUS_OK) return st;
  uint8_t* dst = nullptr;
  st = Reserve(p, static_cast<size_t>(length) + 1, &dst);
  if (st != STATUS_OK) return st;
  memcpy(dst, s, static_cast<size_t>(length));
  dst[length] = 0;
  return STATUS_OK;
}

// Reads one string; `alloc` is called with the size including the
// terminator, or -1 for a null string.
template <typename Alloc>
binder_status_t ReadStringImpl(const AParcel* p, Alloc alloc) {
  int32_t length = 0;
  binder_status_t st = ReadInt32(p, &length);
  if (st != STATUS_OK) return st;
  char* buf = nullptr;
  if (length == -1) return alloc(-1, &buf) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
  if (length < -1) return STATUS_BAD_VALUE;
  const size_t n = static_cast<size_t>(length);
  if (Pad4(n + 1) > Remaining(p)) return STATUS_NOT_ENOUGH_DATA;
  if (!lumx::Utf8Sendable(reinterpret_cast<const char*>(p->data.data() + p->pos), n)) {
    return STATUS_BAD_VALUE;
  }
  if (!alloc(length + 1, &buf) || buf == nullptr) return STATUS_NO_MEMORY;
  const uint8_t* src = Consume(p, n + 1);
  memcpy(buf, src, n);
  buf[n] = '\0';
  return STATUS_OK;
}

}  // namespace

AParcel::~AParcel() {
  if (sensitive && !data.empty()) memset(data.data(), 0, data.size());
  lumx_binder::ParcelClear(this);
}

namespace lumx_binder {

void ParcelClear(AParcel* p) {
  std::vector<ParcelObject> objects;
  objects.swap(p->objects);
  p->fds.clear();
  p->data.clear();
  p->pos = 0;
  for (const ParcelObject& o : objects) DecStrong(o.binder);
}

void ParcelSetData(AParcel* p, std::vector<uint8_t> data) {
  ParcelClear(p);
  p->data = std::move(data);
}

binder_status_t WriteInterfaceToken(AParcel* p, const std::string& descriptor) {
  return WriteStringImpl(p, descriptor.c_str(), static_cast<int32_t>(descriptor.size()));
}

binder_status_t ReadInterfaceToken(const AParcel* p, std::string* descriptor) {
  return ReadStringImpl(p, [descriptor](int32_t len, char** buf) {
    if (len <= 0) return false;
    descriptor->resize(static_cast<size_t>(len) - 1);
    *buf = &(*descriptor)[0];
    return true;
  });
}

}  // namespace lumx_binder

extern "C" {

AParcel* AParcel_create(void) { return new AParcel(); }

void AParcel_delete(AParcel* parcel) { delete parcel; }

void AParcel_markSensitive(const AParcel* parcel) {
  if (parcel != nullptr) parcel->sensitive = true;
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
  if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
  if (position < 0) return STATUS_BAD_VALUE;
  parcel->pos = static_cast<size_t>(position);
  return STATUS_OK;
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
  if (parcel == nullptr) return 0;
  return static_cast<int32_t>(parcel->pos);
}

int32_t AParcel_getDataSize(const AParcel* parcel) {
  if (parcel == nullptr) return 0;
  return static_cast<int32_t>(parcel->data.size());
}

binder_status_t AParcel_reset(AParcel* parcel) {
  if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
  lumx_binder::ParcelClear(parcel);
  return STATUS_OK;
}

binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size) {
  if (from == nullptr || to == nullptr) return STATUS_UNEXPECTED_NULL;
  if (from == to) return STATUS_BAD_VALUE;
  if (start < 0 || size < 0) return STATUS_BAD_VALUE;
  const size_t s = static_cast<size_t>(start);
  const size_t n = static_cast<size_t>(size);
  if (s > from->data.size() || n > from->data.size() - s) return STATUS_BAD_VALUE;
  const size_t base = to->pos;
  if (base > kMaxParcelSize || n > kMaxParcelSize - base) return STATUS_NO_MEMORY;
  if (base + n > to->data.size()) to->data.resize(base + n);
  if (n > 0) memcpy(to->data.data() + base, from->data.data() + s, n);
  to->pos = base + n;
  // Objects inside the copied range come along; their slots are re-indexed.
  for (const lumx_binder::ParcelObject& o : from->objects) {
    const size_t off = static_cast<size_t>(o.offset);
    if (off < s || off + 8 > s + n) continue;
    const int32_t new_off = static_cast<int32_t>(base + (off - s));
    const int32_t index = static_cast<int32_t>(to->objects.size());
    IncStrong(o.binder);
    to->objects.push_back(lumx_binder::ParcelObject{new_off, o.binder});
    memcpy(to->data.data() + new_off + 4, &index, 4);
  }
  for (const lumx_binder::ParcelFd& f : from->fds) {
    const size_t off = static_cast<size_t>(f.offset);
    if (off < s || off + 8 > s + n) continue;
    const int32_t new_off = static_cast<int32_t>(base + (off - s));
    const int32_t index = static_cast<int32_t>(to->fds.size());
    lumx::unique_fd dup(fcntl(f.fd.get(), F_DUPFD_CLOEXEC, 0));
    if (!dup.ok()) return STATUS_NO_MEMORY;
    to->fds.push_back(lumx_binder::ParcelFd{new_off, std::move(dup)});
    memcpy(to->data.data() + new_off + 4, &index, 4);
  }
  return STATUS_OK;
}

// ---- binders and descriptors ----

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
  if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
  const int32_t offset = static_cast<int32_t>(parcel->pos);
  int32_t slot[2] = {kSlotNull, 0};
  if (binder != nullptr) {
    slot[0] = kSlotBinder;
    slot[1] = static_cast<int32_t>(parcel->objects.size());
  }
  binder_status_t st = WriteRaw(parcel, slot, sizeof(slot));
  if (st != STATUS_OK || binder == nullptr) return st;
  IncStrong(binder);
  parcel->objects.push_back(lumx_binder::ParcelObject{offset, binder});
  return STATUS_OK;
}

binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
  if (parcel == nullptr || binder == nullptr) return STATUS_UNEXPECTED_NULL;
  const size_t start = parcel->pos;
  int32_t slot[2];
  const uint8_t* src = Consume(parcel, sizeof(slot));
  if (src == nullptr) return STATUS_NOT_ENOUGH_DATA;
  memcpy(slot, src, sizeof(slot));
  if (slot[0] == kSlotNull) {
    *binder = nullptr;
    return STATUS_OK;
  }
  if (slot[0] != kSlotBinder || slot[1] < 0 ||
      static_cast<size_t>(slot[1]) >= parcel->objects.size()) {
    parcel->pos = start;
    return STATUS_BAD_TYPE;
  }
  AIBinder* b = parcel->objects[static_cast<size_t>(slot[1])].binder;
  IncStrong(b);
  *binder = b;
  return STATUS_OK;
}

binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd) {
  if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
  if (fd < -1) return STATUS_BAD_VALUE;
  const int32_t offset = static_cast<int32_t>(parcel->pos);
  int32_t slot[2] = {kSlotNull, 0};
  lumx::unique_fd dup;
  if (fd >= 0) {
    dup.reset(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (!dup.ok()) return STATUS_BAD_VALUE;
    slot[0] = kSlotFd;
    slot[1] = static_cast<int32_t>(parcel->fds.size());
  }
  binder_status_t st = WriteRaw(parcel, slot, sizeof(slot));
  if (st != STATUS_OK || fd < 0) return st;
  parcel->fds.push_back(lumx_binder::ParcelFd{offset, std::move(dup)});
  return STATUS_OK;
}

binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd) {
  if (parcel == nullptr || fd == nullptr) return STATUS_UNEXPECTED_NULL;
  const size_t start = parcel->pos;
  int32_t slot[2];
  const uint8_t* src = Consume(parcel, sizeof(slot));
  if (src == nullptr) return STATUS_NOT_ENOUGH_DATA;
  memcpy(slot, src, sizeof(slot));
  if (slot[0] == kSlotNull) {
    *fd = -1;
    return STATUS_OK;
  }
  if (slot[0] != kSlotFd || slot[1] < 0 || static_cast<size_t>(slot[1]) >= parcel->fds.size()) {
    parcel->pos = start;
    return STATUS_BAD_TYPE;
  }
  int dup = fcntl(parcel->fds[static_cast<size_t>(slot[1])].fd.get(), F_DUPFD_CLOEXEC, 0);
  if (dup < 0) return STATUS_NO_MEMORY;
  *fd = dup;
  return STATUS_OK;
}

// ---- status header ----

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
  if (parcel == nullptr || status == nullptr) return STATUS_UNEXPECTED_NULL;
  if (status->exception == EX_TRANSACTION_FAILED) {
    // Not sent as a reply: the transaction itself fails with this status.
    return status->error != STATUS_OK ? status->error : STATUS_FAILED_TRANSACTION;
  }
  binder_status_t st = WriteValue<int32_t>(parcel, status->exception);
  if (st != STATUS_OK || status->exception == EX_NONE) return st;
  st = WriteStringImpl(parcel, status->message.c_str(), static_cast<int32_t>(status->message.size()));
  if (st != STATUS_OK) return st;
  st = WriteValue<int32_t>(parcel, 0);  // empty remote stack trace
  if (st != STATUS_OK) return st;
  if (status->exception == EX_SERVICE_SPECIFIC) return WriteValue<int32_t>(parcel, status->error);
  if (status->exception == EX_PARCELABLE) return WriteValue<int32_t>(parcel, 0);
  return STATUS_OK;
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
  if (parcel == nullptr || status == nullptr) return STATUS_UNEXPECTED_NULL;
  int32_t ex = 0;
  binder_status_t st = ReadInt32(parcel, &ex);
  if (st != STATUS_OK) return st;
  constexpr int32_t kExHasReplyHeader = -128;
  if (ex == kExHasReplyHeader) {
    // "Fat" reply header: int32 size (including itself) to skip.
    const size_t at = parcel->pos;
    int32_t size = 0;
    st = ReadInt32(parcel, &size);
    if (st != STATUS_OK) return st;
    if (size < 4 || static_cast<size_t>(size) > parcel->data.size() - at) return STATUS_BAD_VALUE;
    parcel->pos = at + static_cast<size_t>(size);
    ex = EX_NONE;
  }
  if (ex == EX_NONE) {
    *status = AStatus_newOk();
    return STATUS_OK;
  }
  std::string message;  // a null message reads as empty
  st = ReadStringImpl(parcel, [&](int32_t len, char** buf) {
    if (len < 0) return true;
    message.resize(static_cast<size_t>(len) - 1);
    *buf = &message[0];
    return true;
  });
  if (st != STATUS_OK) return st;
  int32_t trace_size = 0;
  st = ReadInt32(parcel, &trace_size);
  if (st != STATUS_OK) return st;
  if (trace_size < 0 || static_cast<size_t>(trace_size) > Remaining(parcel)) {
    return STATUS_BAD_VALUE;
  }
  parcel->pos += static_cast<size_t>(trace_size);
  int32_t error = 0;
  if (ex == EX_SERVICE_SPECIFIC) {
    st = ReadInt32(parcel, &error);
    if (st != STATUS_OK) return st;
  } else if (ex == EX_PARCELABLE) {
    int32_t ignored = 0;
    st = ReadInt32(parcel, &ignored);
    if (st != STATUS_OK) return st;
  }
  if (ex == EX_SERVICE_SPECIFIC) {
    *status = AStatus_fromServiceSpecificErrorWithMessage(error, message.c_str());
  } else {
    *status = AStatus_fromExceptionCodeWithMessage(ex, message.c_str());
  }
  return STATUS_OK;
}

// ---- strings ----

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
  if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
  return WriteStringImpl(parcel, string, length);
}

binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) {
  if (parcel == nullptr || allocator == nullptr) return STATUS_UNEXPECTED_NULL;
  return ReadStringImpl(parcel,
                        [&](int32_t len, char** buf) { return allocator(stringData, len, buf); });
}

binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter) {
  if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
  binder_status_t st = CheckOpaqueArrayArgs(arrayData, length);
  if (st != STATUS_OK) return st;
  if (length > 0 && getter == nullptr) return STATUS_UNEXPECTED_NULL;
  st = WriteValue<int32_t>(parcel, length);
  for (int32_t i = 0; st == STATUS_OK && i < length; ++i) {
    int32_t len = -1;
    const char* s = getter(arrayData, static_cast<size_t>(i), &len);
    st = WriteStringImpl(parcel, s, s == nullptr ? -1 : len);
  }
  return st;
}

binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator) {
  if (parcel == nullptr || allocator == nullptr || elementAllocator == nullptr) {
    return STATUS_UNEXPECTED_NULL;
  }
  int32_t length = 0;
  binder_status_t st = ReadCount(parcel, &length);
  if (st != STATUS_OK) return st;
  if (!allocator(arrayData, length)) return STATUS_NO_MEMORY;
  for (int32_t i = 0; i < length; ++i) {
    st = ReadStringImpl(parcel, [&](int32_t len, char** buf) {
      return elementAllocator(arrayData, static_cast<size_t>(i), len, buf);
    });
    if (st != STATUS_OK) return st;
  }
  return STATUS_OK;
}

// ---- parcelable arrays ----

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
  if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
  binder_status_t st = CheckOpaqueArrayArgs(arrayData, length);
  if (st != STATUS_OK) return st;
  if (length > 0 && elementWriter == nullptr) return STATUS_UNEXPECTED_NULL;
  st = WriteValue<int32_t>(parcel, length);
  for (int32_t i = 0; st == STATUS_OK && i < length; ++i) {
    st = elementWriter(parcel, arrayData, static_cast<size_t>(i));
  }
  return st;
}

binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
  if (parcel == nullptr || allocator == nullptr || elementReader == nullptr) {
    return STATUS_UNEXPECTED_NULL;
  }
  int32_t length = 0;
  binder_status_t st = ReadCount(parcel, &length);
  if (st != STATUS_OK) return st;
  if (!allocator(arrayData, length)) return STATUS_NO_MEMORY;
  for (int32_t i = 0; i < length; ++i) {
    st = elementReader(parcel, arrayData, static_cast<size_t>(i));
    if (st != STATUS_OK) return st;
  }
  return STATUS_OK;
}

// ---- primitives ----

binder_status_t AParcel_writeInt32(AParcel* p, int32_t v) { return WriteValue(p, v); }
binder_status_t AParcel_writeUint32(AParcel* p, uint32_t v) { return WriteValue(p, v); }
binder_status_t AParcel_writeInt64(AParcel* p, int64_t v) { return WriteValue(p, v); }
binder_status_t AParcel_writeUint64(AParcel* p, uint64_t v) { return WriteValue(p, v); }
binder_status_t AParcel_writeFloat(AParcel* p, float v) { return WriteValue(p, v); }
binder_status_t AParcel_writeDouble(AParcel* p, double v) { return WriteValue(p, v); }
binder_status_t AParcel_writeBool(AParcel* p, bool v) { return WriteValue<int32_t>(p, v ? 1 : 0); }
binder_status_t AParcel_writeChar(AParcel* p, char16_t v) {
  return WriteValue<int32_t>(p, static_cast<int32_t>(v));
}
binder_status_t AParcel_writeByte(AParcel* p, int8_t v) {
  return WriteValue<int32_t>(p, static_cast<int32_t>(v));
}

binder_status_t AParcel_readInt32(const AParcel* p, int32_t* v) { return ReadValue(p, v); }
binder_status_t AParcel_readUint32(const AParcel* p, uint32_t* v) { return ReadValue(p, v); }
binder_status_t AParcel_readInt64(const AParcel* p, int64_t* v) { return ReadValue(p, v); }
binder_status_t AParcel_readUint64(const AParcel* p, uint64_t* v) { return ReadValue(p, v); }
binder_status_t AParcel_readFloat(const AParcel* p, float* v) { return ReadValue(p, v); }
binder_status_t AParcel_readDouble(const AParcel* p, double* v) { return ReadValue(p, v); }

binder_status_t AParcel_readBool(const AParcel* p, bool* v) {
  if (v == nullptr) return STATUS_UNEXPECTED_NULL;
  int32_t raw = 0;
  binder_status_t st = ReadValue(p, &raw);
  if (st == STATUS_OK) *v = raw != 0;
  return st;
}

binder_status_t AParcel_readChar(const AParcel* p, char16_t* v) {
  if (v == nullptr) return STATUS_UNEXPECTED_NULL;
  int32_t raw = 0;
  binder_status_t st = ReadValue(p, &raw);
  if (st == STATUS_OK) *v = static_cast<char16_t>(raw);
  return st;
}

binder_status_t AParcel_readByte(const AParcel* p, int8_t* v) {
  if (v == nullptr) return STATUS_UNEXPECTED_NULL;
  int32_t raw = 0;
  binder_status_t st = ReadValue(p, &raw);
  if (st == STATUS_OK) *v = static_cast<int8_t>(raw);
  return st;
}

// ---- primitive arrays ----

binder_status_t AParcel_writeInt32Array(AParcel* p, const int32_t* a, int32_t n) {
  return WritePackedArray(p, a, n);
}
binder_status_t AParcel_writeUint32Array(AParcel* p, const uint32_t* a, int32_t n) {
  return WritePackedArray(p, a, n);
}
binder_status_t AParcel_writeInt64Array(AParcel* p, const int64_t* a, int32_t n) {
  return WritePackedArray(p, a, n);
}
binder_status_t AParcel_writeUint64Array(AParcel* p, const uint64_t* a, int32_t n) {
  return WritePackedArray(p, a, n);
}
binder_status_t AParcel_writeFloatArray(AParcel* p, const float* a, int32_t n) {
  return WritePackedArray(p, a, n);
}
binder_status_t AParcel_writeDoubleArray(AParcel* p, const double* a, int32_t n) {
  return WritePackedArray(p, a, n);
}
binder_status_t AParcel_writeByteArray(AParcel* p, const int8_t* a, int32_t n) {
  return WritePackedArray(p, a, n);
}

binder_status_t AParcel_writeCharArray(AParcel* p, const char16_t* a, int32_t n) {
  if (p == nullptr) return STATUS_UNEXPECTED_NULL;
  binder_status_t st = CheckArrayArgs(a, n);
  if (st != STATUS_OK) return st;
  st = WriteValue<int32_t>(p, n);
  for (int32_t i = 0; st == STATUS_OK && i < n; ++i) st = AParcel_writeChar(p, a[i]);
  return st;
}

binder_status_t AParcel_writeBoolArray(AParcel* p, const void* a, int32_t n,
                                       AParcel_boolArrayGetter getter) {
  if (p == nullptr) return STATUS_UNEXPECTED_NULL;
  binder_status_t st = CheckOpaqueArrayArgs(a, n);
  if (st != STATUS_OK) return st;
  if (n > 0 && getter == nullptr) return STATUS_UNEXPECTED_NULL;
  st = WriteValue<int32_t>(p, n);
  for (int32_t i = 0; st == STATUS_OK && i < n; ++i) {
    st = AParcel_writeBool(p, getter(a, static_cast<size_t>(i)));
  }
  return st;
}

binder_status_t AParcel_readInt32Array(const AParcel* p, void* d, AParcel_int32ArrayAllocator a) {
  return ReadPackedArray(p, d, a);
}
binder_status_t AParcel_readUint32Array(const AParcel* p, void* d, AParcel_uint32ArrayAllocator a) {
  return ReadPackedArray(p, d, a);
}
binder_status_t AParcel_readInt64Array(const AParcel* p, void* d, AParcel_int64ArrayAllocator a) {
  return ReadPackedArray(p, d, a);
}
binder_status_t AParcel_readUint64Array(const AParcel* p, void* d, AParcel_uint64ArrayAllocator a) {
  return ReadPackedArray(p, d, a);
}
binder_status_t AParcel_readFloatArray(const AParcel* p, void* d, AParcel_floatArrayAllocator a) {
  return ReadPackedArray(p, d, a);
}
binder_status_t AParcel_readDoubleArray(const AParcel* p, void* d, AParcel_doubleArrayAllocator a) {
  return ReadPackedArray(p, d, a);
}
binder_status_t AParcel_readByteArray(const AParcel* p, void* d, AParcel_byteArrayAllocator a) {
  return ReadPackedArray(p, d, a);
}

binder_status_t AParcel_readCharArray(const AParcel* p, void* d, AParcel_charArrayAllocator a) {
  if (p == nullptr || a == nullptr) return STATUS_UNEXPECTED_NULL;
  int32_t n = 0;
  binder_status_t st = ReadCount(p, &n);
  if (st != STATUS_OK) return st;
  char16_t* buf = nullptr;
  if (n == -1) return a(d, -1, &buf) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
  if (!a(d, n, &buf) || (n > 0 && buf == nullptr)) return STATUS_NO_MEMORY;
  for (int32_t i = 0; i < n; ++i) {
    st = AParcel_readChar(p, &buf[i]);
    if (st != STATUS_OK) return st;
  }
  return STATUS_OK;
}

binder_status_t AParcel_readBoolArray(const AParcel* p, void* d, AParcel_boolArrayAllocator a,
                                      AParcel_boolArraySetter setter) {
  if (p == nullptr || a == nullptr || setter == nullptr) return STATUS_UNEXPECTED_NULL;
  int32_t n = 0;
  binder_status_t st = ReadCount(p, &n);
  if (st != STATUS_OK) return st;
  if (n == -1) return a(d, -1) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
  if (!a(d, n)) return STATUS_NO_MEMORY;
  for (int32_t i = 0; i < n; ++i) {
    bool v = false;
    st = AParcel_readBool(p, &v);
    if (st != STATUS_OK) return st;
    setter(d, static_cast<size_t>(i), v);
  }
  return STATUS_OK;
}

}  // extern "C"
