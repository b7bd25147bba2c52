// libFuzzer target over the host binder wire decoding: the frame decoder fed
// in arbitrary chunks, then every decoded frame's data (and the raw input
// itself) read as a parcel with a fuzzer-chosen sequence of typed reads.
// Nothing here touches a socket or a thread.
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/binder/frame.h"
#include "platform/host/binder/internal.h"

namespace {

// A parcelable with a size prefix, as generated code writes them.
struct Item {
  int32_t id = 0;
  std::string name;
  std::vector<uint8_t> blob;

  binder_status_t readFromParcel(const AParcel* p) {
    int32_t start = AParcel_getDataPosition(p);
    int32_t size = 0;
    binder_status_t st = AParcel_readInt32(p, &size);
    if (st != STATUS_OK) return st;
    if (size < 4 || start > INT32_MAX - size) return STATUS_BAD_VALUE;
    if ((st = ndk::AParcel_readData(p, &id)) != STATUS_OK) return st;
    if ((st = ndk::AParcel_readData(p, &name)) != STATUS_OK) return st;
    if ((st = ndk::AParcel_readData(p, &blob)) != STATUS_OK) return st;
    return AParcel_setDataPosition(p, start + size);
  }
  binder_status_t writeToParcel(AParcel* p) const {
    AParcel_writeInt32(p, 12);
    ndk::AParcel_writeData(p, id);
    ndk::AParcel_writeData(p, name);
    return ndk::AParcel_writeData(p, blob);
  }
};

enum class Mode : int8_t { A = 0, B = 1 };

// Runs reads chosen by `ops` over `p`; every result must be a status.
void ReadSequence(const AParcel* p, const uint8_t* ops, size_t n_ops) {
  for (size_t i = 0; i < n_ops; ++i) {
    switch (ops[i] % 20) {
      case 0: { int32_t v; (void)AParcel_readInt32(p, &v); break; }
      case 1: { int64_t v; (void)AParcel_readInt64(p, &v); break; }
      case 2: { double v; (void)AParcel_readDouble(p, &v); break; }
      case 3: { bool v; (void)AParcel_readBool(p, &v); break; }
      case 4: { std::string s; (void)ndk::AParcel_readData(p, &s); break; }
      case 5: { std::optional<std::string> s; (void)ndk::AParcel_readNullableData(p, &s); break; }
      case 6: { std::vector<uint8_t> v; (void)ndk::AParcel_readData(p, &v); break; }
      case 7: { std::vector<int32_t> v; (void)ndk::AParcel_readData(p, &v); break; }
      case 8: { std::vector<std::string> v; (void)ndk::AParcel_readData(p, &v); break; }
      case 9: { std::vector<bool> v; (void)ndk::AParcel_readData(p, &v); break; }
      case 10: { std::vector<char16_t> v; (void)ndk::AParcel_readData(p, &v); break; }
      case 11: { Item it; (void)ndk::AParcel_readData(p, &it); break; }
      case 12: { std::vector<Item> v; (void)ndk::AParcel_readData(p, &v); break; }
      case 13: { std::optional<Item> it; (void)ndk::AParcel_readNullableData(p, &it); break; }
      case 14: { std::vector<Mode> v; (void)ndk::AParcel_readData(p, &v); break; }
      case 15: {
        AStatus* st = nullptr;
        if (AParcel_readStatusHeader(p, &st) == STATUS_OK) AStatus_delete(st);
        break;
      }
      case 16: {
        AIBinder* b = nullptr;
        if (AParcel_readStrongBinder(p, &b) == STATUS_OK && b != nullptr) AIBinder_decStrong(b);
        break;
      }
      case 17: { std::vector<int32_t> v; (void)ndk::AParcel_resizeVector(p, &v); break; }
      case 18: { std::optional<std::vector<std::optional<std::string>>> v;
                 (void)ndk::AParcel_readNullableData(p, &v); break; }
      case 19: {
        AParcel_setDataPosition(p, static_cast<int32_t>(ops[i] >> 2) * 4);
        break;
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // 1. The whole input as exactly one frame.
  {
    lumx_binder::Frame f;
    const char* why = nullptr;
    (void)lumx_binder::DecodeOneFrame(data, size, &f, &why);
  }

  // 2. The input as a stream, fed in chunks whose sizes come from the input.
  lumx_binder::FrameDecoder decoder;
  size_t pos = 0;
  size_t frames = 0;
  while (pos < size) {
    size_t chunk = 1 + (data[pos] % 97);
    if (chunk > size - pos) chunk = size - pos;
    decoder.Append(data + pos, chunk);
    pos += chunk;
    lumx_binder::Frame f;
    lumx_binder::DecodeStatus st;
    while ((st = decoder.Next(&f)) == lumx_binder::DecodeStatus::kOk) {
      ++frames;
      // Decoded data as a parcel, read with the frame's own bytes as ops.
      AParcel* p = AParcel_create();
      std::vector<uint8_t> ops(f.data.begin(), f.data.begin() + std::min<size_t>(f.data.size(), 32));
      lumx_binder::ParcelSetData(p, std::move(f.data));
      ReadSequence(p, ops.data(), ops.size());
      AParcel_delete(p);
      // Whatever decoded must encode again.
      std::vector<uint8_t> again;
      f.data.clear();
      (void)lumx_binder::EncodeFrame(f, &again);
    }
    if (st == lumx_binder::DecodeStatus::kError) break;
  }

  // 3. The input directly as parcel bytes, the first 16 bytes choosing reads.
  if (size > 0) {
    const size_t n_ops = size < 16 ? size : 16;
    AParcel* p = AParcel_create();
    lumx_binder::ParcelSetData(p, std::vector<uint8_t>(data + n_ops, data + size));
    ReadSequence(p, data, n_ops);
    AParcel_delete(p);
  }
  (void)frames;
  return 0;
}
