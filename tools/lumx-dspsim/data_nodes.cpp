#include "tools/lumx-dspsim/data_nodes.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace lumx::dspsim {

namespace {

// Makes a fresh FIFO at `path`, replacing a node left by an earlier run.
bool MakeFifo(const std::string& path, std::string* error) {
  struct stat st;
  if (lstat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) {
      *error = path + ": is a directory";
      return false;
    }
    unlink(path.c_str());
  }
  if (mkfifo(path.c_str(), 0666) != 0) {
    *error = "mkfifo " + path + ": " + std::strerror(errno);
    return false;
  }
  // Clients may run as another user: undo the umask.
  chmod(path.c_str(), 0666);
  return true;
}

// Writes to a node whose reader went away must fail with EPIPE, not end the
// process: ignore SIGPIPE unless the program has its own handler.
void IgnoreSigpipe() {
  struct sigaction old;
  if (sigaction(SIGPIPE, nullptr, &old) == 0 && old.sa_handler == SIG_DFL) {
    signal(SIGPIPE, SIG_IGN);
  }
}

}  // namespace

std::string TapOutNodeName(int id) { return "zch-lumx_tapout" + std::to_string(id); }
std::string InjectNodeName(int id) { return "zch-lumx_inject" + std::to_string(id); }

// ---- tap-out ----------------------------------------------------------------

bool TapOutNode::Create(std::string* error) {
  IgnoreSigpipe();
  if (!MakeFifo(path_, error)) return false;
  // A write end can only be opened without blocking while a reader exists:
  // open a temporary one, then let it go.
  lumx::unique_fd reader(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!reader.ok()) {
    *error = "open " + path_ + ": " + std::strerror(errno);
    unlink(path_.c_str());
    return false;
  }
  fd_.reset(open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd_.ok()) {
    *error = "open " + path_ + " for writing: " + std::strerror(errno);
    unlink(path_.c_str());
    return false;
  }
  Discard();
  readerSeen_ = false;
  writerGone_ = false;
  return true;
}

void TapOutNode::DropWriter() {
  if (!fd_.ok()) return;
  Discard();
  fd_.reset();
  writerGone_ = true;
}

bool TapOutNode::RestoreWriter() {
  if (!writerGone_) return true;
  // Without a reader a non-blocking write end cannot be opened: lend one.
  lumx::unique_fd reader(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  fd_.reset(open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd_.ok()) return false;
  writerGone_ = false;
  readerSeen_ = false;
  return true;
}

void TapOutNode::Remove(std::vector<lumx::unique_fd>* orphans) {
  if (writerGone_) {
    unlink(path_.c_str());
    writerGone_ = false;
    return;
  }
  if (!fd_.ok()) return;
  unlink(path_.c_str());
  Discard();
  orphans->push_back(std::move(fd_));
  fd_.reset();
}

uint8_t* TapOutNode::Begin(size_t n) {
  Discard();
  if (buf_.size() < n) buf_.resize(n);
  return buf_.data();
}

void TapOutNode::AddPiece(size_t end, int64_t notBefore) {
  pieces_.push_back(Piece{end, notBefore});
}

void TapOutNode::Discard() {
  pieces_.clear();
  piece_ = 0;
  pos_ = 0;
  waitWritable_ = false;
}

int64_t TapOutNode::nextPieceTime() const {
  if (!busy() || waitWritable_) return 0;
  return pieces_[piece_].notBefore;
}

TapOutNode::Flush TapOutNode::Write(int64_t nowNs, uint64_t* bytesWritten, bool rush) {
  if (!busy()) return Flush::kIdle;
  if (!fd_.ok()) {
    Discard();
    return writerGone_ ? Flush::kWriterGone : Flush::kError;
  }
  waitWritable_ = false;
  while (piece_ < pieces_.size()) {
    const Piece& p = pieces_[piece_];
    if (p.notBefore > nowNs && !rush) return Flush::kWaitTime;
    while (pos_ < p.end) {
      ssize_t n = write(fd_.get(), buf_.data() + pos_, p.end - pos_);
      if (n > 0) {
        pos_ += static_cast<size_t>(n);
        *bytesWritten += static_cast<uint64_t>(n);
        readerSeen_ = true;
        continue;
      }
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && errno == EAGAIN) {
        waitWritable_ = true;
        return Flush::kWaitWritable;
      }
      bool noReader = n < 0 && errno == EPIPE;
      Discard();
      if (noReader) {
        if (readerSeen_) DrainLeftovers();
        readerSeen_ = false;
        return Flush::kNoReader;
      }
      return Flush::kError;
    }
    ++piece_;
  }
  Discard();
  return Flush::kDone;
}

void TapOutNode::DrainLeftovers() {
  // The last reader went away with packets unread. A device would not replay
  // them to its next reader, so empty the pipe.
  lumx::unique_fd r(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!r.ok()) return;
  uint8_t scratch[4096];
  for (int i = 0; i < 64; ++i) {
    ssize_t n = read(r.get(), scratch, sizeof scratch);
    if (n <= 0) break;
  }
}

// ---- inject -----------------------------------------------------------------

bool InjectNode::Create(std::string* error) {
  if (!MakeFifo(path_, error)) return false;
  reader_.reset(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!reader_.ok()) {
    *error = "open " + path_ + ": " + std::strerror(errno);
    unlink(path_.c_str());
    return false;
  }
  idleWriter_.reset(open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (!idleWriter_.ok()) {
    *error = "open " + path_ + " for writing: " + std::strerror(errno);
    reader_.reset();
    unlink(path_.c_str());
    return false;
  }
  parser_.Reset();
  return true;
}

void InjectNode::Remove(std::vector<lumx::unique_fd>* orphans) {
  if (!reader_.ok()) return;
  unlink(path_.c_str());
  idleWriter_.reset();
  orphans->push_back(std::move(reader_));
  reader_.reset();
  parser_.Reset();
}

}  // namespace lumx::dspsim
