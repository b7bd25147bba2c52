#include "support/stream_fifo_rig.h"

#include <unistd.h>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"

StreamFifoRig::StreamFifoRig(int count) : nums_(count), inject_(count), stalled_(count) {
  for (int i = 0; i < count; ++i) {
    const std::string n = std::to_string(i);
    dir.MakeFifo("zch-lumx_tapout" + n);
    dir.MakeFifo("zch-lumx_inject" + n);
    feeders_.push_back(BufferOpenFifoFeeder(dir.Path("zch-lumx_tapout" + n)));
    inject_[i].fd = BufferOpenFifoReader(dir.Path("zch-lumx_inject" + n));
    stalled_[i] = false;
    nums_[i] = 0;
  }
  thread_ = std::thread([this] { Run(); });
}

StreamFifoRig::~StreamFifoRig() {
  stop_ = true;
  thread_.join();
  for (int fd : feeders_) close(fd);
  for (Inject& in : inject_) close(in.fd);
}

void StreamFifoRig::Run() {
  BufferPacketDesc desc;
  std::vector<uint8_t> block(65536);
  while (!stop_) {
    for (size_t i = 0; i < feeders_.size(); ++i) {
      if (BufferPipeBytes(feeders_[i]) != 0) continue;
      desc.num = nums_[i] + 1;
      desc.seed = static_cast<uint8_t>(desc.num);
      const std::vector<uint8_t> packet = BufferMakePacket(desc);
      if (write(feeders_[i], packet.data(), packet.size()) > 0) ++nums_[i];
    }
    for (size_t i = 0; i < inject_.size(); ++i) {
      if (stalled_[i]) continue;
      const ssize_t n = read(inject_[i].fd, block.data(), block.size());
      if (n <= 0) continue;
      inject_[i].pending.insert(inject_[i].pending.end(), block.begin(), block.begin() + n);
      Parse(inject_[i]);
    }
    usleep(2000);
  }
}

void StreamFifoRig::Parse(Inject& in) {
  std::vector<uint8_t>& b = in.pending;
  size_t pos = 0;
  while (b.size() - pos >= kLumPacketHeaderSize) {
    if (lumx::GetLe32(&b[pos]) != kLumPacketMagic) {
      ++pos;
      in.skipped.fetch_add(1);
      continue;
    }
    const uint32_t size = lumx::GetLe32(&b[pos + kPktPayloadSizeOffset]);
    if (lumx::GetLe32(&b[pos + kPktVersionOffset]) != 1 || size != 1920) {
      in.corrupt.fetch_add(1);
      pos += 4;
      continue;
    }
    if (b.size() - pos < kLumPacketHeaderSize + size) break;
    const uint8_t* payload = &b[pos + kLumPacketHeaderSize];
    const uint8_t seed = static_cast<uint8_t>(lumx::GetLe32(&b[pos + kPktNumOffset]));
    bool fed = true;
    bool silent = true;
    for (uint32_t i = 0; i < size; ++i) {
      fed = fed && payload[i] == static_cast<uint8_t>(seed + 7 * i);
      silent = silent && payload[i] == 0;
    }
    (fed || silent ? in.packets : in.corrupt).fetch_add(1);
    pos += kLumPacketHeaderSize + size;
  }
  b.erase(b.begin(), b.begin() + static_cast<long>(pos));
}
