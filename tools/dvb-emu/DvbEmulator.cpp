#define FUSE_USE_VERSION 35

#include "DvbEmulator.h"

#include <fuse_lowlevel.h>
#include <linux/dvb/dmx.h>
#include <linux/dvb/frontend.h>
#include <linux/dvb/version.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <random>
#include <thread>

#include "SectionDemux.h"
#include "SectionSink.h"
#include "StreamPacer.h"
#include "TCrc32.h"
#include "TransportStreamSource.h"
#include "TsPacket.h"
#include "TsPacketizer.h"

namespace Ostrel {

namespace {

using Clock = std::chrono::steady_clock;

// The kernel's default section buffer (dmxdev) and its ring's one spare byte.
const unsigned int kDefaultBufferSize = 8192;
// Bytes read from the stream file per step: 20 packets, 7.5 ms at 4 Mbit/s.
const size_t kChunk = 188 * 20;
// How long a full buffer holds the stream back in --fast mode before it
// overflows as it would at a fixed rate.
const std::chrono::seconds kFastBackPressure(1);

// The kernel's default dvr buffer (dmxdev: ten times 188 KiB).
const unsigned int kDvrBufferSize = 10 * 188 * 1024;

// Inode numbers: 1 the root, then four per adapter (directory, demux0,
// frontend0, dvr0).
enum NodeKind { kDir = 0, kDemux = 1, kFrontend = 2, kDvr = 3 };
const unsigned int kNodesPerAdapter = 4;
const fuse_ino_t kRootIno = 1;

fuse_ino_t inoOf(int adapter, NodeKind kind) {
  return 2 + kNodesPerAdapter * static_cast<fuse_ino_t>(adapter) + kind;
}

const char* const kNodeNames[] = {"", "demux0", "frontend0", "dvr0"};

DvbEmulator* emulatorOf(fuse_req_t req) {
  return static_cast<DvbEmulator*>(fuse_req_userdata(req));
}

// Copies between our memory and the calling process's, which FUSE does not do
// for a pointer inside an ioctl argument.
bool callerMemory(pid_t pid, void* local, const void* remote, size_t size, bool write) {
  struct iovec l = {local, size};
  struct iovec r = {const_cast<void*>(remote), size};
  ssize_t n =
      write ? process_vm_writev(pid, &l, 1, &r, 1, 0) : process_vm_readv(pid, &l, 1, &r, 1, 0);
  return n == static_cast<ssize_t>(size);
}

}  // namespace

struct DvbEmulator::Handle {
  virtual ~Handle() {}
  DvbEmulator::Adapter* adapter = nullptr;
  bool demux = false;
  bool writable = false;
  struct fuse_pollhandle* poll = nullptr;
};

struct DvbEmulator::DemuxHandle : DvbEmulator::Handle {
  enum State { kAllocated, kSet, kGo, kDone, kTimedOut };
  // What the handle carries: sections (DMX_SET_FILTER), transport packets of
  // a PES filter (DMX_SET_PES_FILTER: read here with DMX_OUT_TSDEMUX_TAP,
  // sent to dvr0 with DMX_OUT_TS_TAP, dropped for the decoder), or dvr0's
  // packets. Packets are read as a byte stream, sections one per read.
  enum Kind { kSections, kPesHere, kPesToDvr, kPesDecoder, kDvrReader };
  Kind kind = kSections;
  State state = kAllocated;
  struct dmx_sct_filter_params params;  // mode bits inverted, as dmxdev keeps them
  unsigned int pesPid = 0;              // 0x2000: every PID
  unsigned int bufferSize = kDefaultBufferSize;
  bool started = false;  // the buffer exists once a filter has started
  std::deque<std::vector<unsigned char>> sections;
  size_t used = 0;    // bytes queued
  size_t offset = 0;  // bytes of the first section already read
  int error = 0;      // ETIMEDOUT or EOVERFLOW, given to the next read
  bool hasDeadline = false;
  Clock::time_point deadline;
  std::deque<std::pair<fuse_req_t, size_t>> reads;  // blocked reads, in order
};

struct DvbEmulator::Adapter : SectionSink, TsPacketSink {
  DvbEmulator* owner = nullptr;
  int index = 0;
  std::string path;
  std::unique_ptr<TransportStreamSource> source;  // a file, looping
  TsPacketizer packetizer;
  std::unique_ptr<SectionDemux> demux;
  std::thread thread;
  std::condition_variable cv;
  std::vector<std::unique_ptr<Handle>> handles;
  bool removed = false;
  bool played = false;  // the stream has begun (the pump thread only)
  bool frontendWriter = false;
  uint64_t sectionsRead = 0;
  // Faults.
  int refusePid = -2;  // -2 none, -1 every PID
  long long readErrorAfter = -1;
  double crcShare = 0.0;
  double removeAfter = -1.0;
  std::mt19937 random;
  // Held by the pump while its sections are dispatched.
  std::unique_lock<std::mutex>* lock = nullptr;

  void onSection(int, unsigned short pid, const unsigned char* data, unsigned int size) override {
    owner->onSection(this, pid, data, size);
  }
  void onPackets(const unsigned char* first, unsigned int count, unsigned int stride) override {
    owner->onPackets(this, first, count, stride);
    demux->onPackets(first, count, stride);
  }
  template <typename F>
  void forEachDemux(F f) {
    for (auto& h : handles) {
      if (h->demux) {
        f(static_cast<DemuxHandle*>(h.get()));
      }
    }
  }
};

namespace {

// The kernel's section filter: byte 0 and bytes 3.. of the section against
// filter bytes 0 and 1..; mask bits with mode 0 must be equal, and when any
// mask bit has mode 1, at least one of those must differ.
bool filterMatches(const dmx_sct_filter_params& p, const unsigned char* data, unsigned int size) {
  unsigned char notEqual = 0;
  bool anyNotEqualBit = false;
  for (unsigned int i = 0; i < DMX_FILTER_SIZE; ++i) {
    unsigned int at = i == 0 ? 0 : i + 2;
    unsigned char byte = at < size ? data[at] : 0;
    unsigned char diff = static_cast<unsigned char>(p.filter.filter[i] ^ byte);
    unsigned char mask = p.filter.mask[i];
    unsigned char mode = p.filter.mode[i];  // inverted: 0xFF means "equal"
    if (mask & mode & diff) {
      return false;
    }
    unsigned char maskNotMode = static_cast<unsigned char>(mask & ~mode);
    anyNotEqualBit = anyNotEqualBit || maskNotMode != 0;
    notEqual |= static_cast<unsigned char>(maskNotMode & diff);
  }
  return !anyNotEqualBit || notEqual != 0;
}

}  // namespace

DvbEmulator::DvbEmulator(const DvbEmuOptions& options) : m_options(options) {
  for (size_t i = 0; i < options.adapters.size(); ++i) {
    std::unique_ptr<Adapter> a(new Adapter);
    a->owner = this;
    a->index = static_cast<int>(i);
    a->path = options.adapters[i];
    a->demux.reset(new SectionDemux(a->index, a.get()));
    a->random.seed(options.seed + static_cast<unsigned int>(i));
    for (const DvbFault& f : options.faults) {
      if (f.adapter >= 0 && f.adapter != a->index) {
        continue;
      }
      switch (f.kind) {
        case DvbFault::kRefuseFilter:
          a->refusePid = static_cast<int>(f.value);
          break;
        case DvbFault::kReadError:
          a->readErrorAfter = static_cast<long long>(f.value);
          break;
        case DvbFault::kCrc:
          a->crcShare = f.value;
          break;
        case DvbFault::kRemove:
          a->removeAfter = f.value;
          break;
      }
    }
    m_vecAdapters.push_back(std::move(a));
  }
}

DvbEmulator::~DvbEmulator() {
  for (auto& a : m_vecAdapters) {
    if (a->thread.joinable()) {
      {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bStopping = true;
      }
      a->cv.notify_all();
      a->thread.join();
    }
    for (auto& h : a->handles) {
      if (h->poll) {
        fuse_pollhandle_destroy(h->poll);
      }
    }
  }
  if (m_pSession) {
    if (m_bMounted) {
      fuse_session_unmount(m_pSession);
    }
    fuse_session_destroy(m_pSession);
  }
}

bool DvbEmulator::hasRoom(const DemuxHandle* h, unsigned int size) const {
  return h->used + size <= h->bufferSize - 1;
}

void DvbEmulator::onSection(Adapter* a, unsigned short pid, const unsigned char* data,
                            unsigned int size) {
  if (a->removed || size < 3) {
    return;
  }
  std::vector<unsigned char> damaged;
  if (a->crcShare > 0 && (data[1] & 0x80) && size >= 4 &&
      std::uniform_real_distribution<double>(0.0, 1.0)(a->random) < a->crcShare) {
    damaged.assign(data, data + size);
    damaged.back() ^= 0xFF;
    data = damaged.data();
  }
  auto passes = [&](const DemuxHandle* h) {
    if (h->kind != DemuxHandle::kSections || h->state != DemuxHandle::kGo || h->error ||
        h->params.pid != pid || !filterMatches(h->params, data, size)) {
      return false;
    }
    // The kernel checks the CRC of sections with the syntax indicator only.
    return !((h->params.flags & DMX_CHECK_CRC) && (data[1] & 0x80) &&
             TCrc32::compute(data, size) != 0);
  };
  if (m_options.fast && a->lock) {
    // Back-pressure: wait for the readers, up to a limit, then overflow.
    const Clock::time_point limit = Clock::now() + kFastBackPressure;
    for (;;) {
      bool full = false;
      a->forEachDemux([&](DemuxHandle* h) { full = full || (passes(h) && !hasRoom(h, size)); });
      if (!full || m_bStopping || a->removed ||
          a->cv.wait_until(*a->lock, limit) == std::cv_status::timeout) {
        break;
      }
    }
    if (a->removed) {
      return;
    }
  }
  a->forEachDemux([&](DemuxHandle* h) {
    if (passes(h)) {
      deliver(h, data, size);
    }
  });
}

void DvbEmulator::onPackets(Adapter* a, const unsigned char* first, unsigned int count,
                            unsigned int stride) {
  if (a->removed) {
    return;
  }
  bool anyPes = false;
  a->forEachDemux([&](DemuxHandle* h) {
    anyPes = anyPes || (h->state == DemuxHandle::kGo && h->kind != DemuxHandle::kSections &&
                        h->kind != DemuxHandle::kDvrReader);
  });
  for (unsigned int i = 0; anyPes && i < count; ++i) {
    const unsigned char* packet = first + static_cast<size_t>(i) * stride;
    const unsigned int pid = ((packet[1] & 0x1Fu) << 8) | packet[2];
    bool toDvr = false;
    a->forEachDemux([&](DemuxHandle* h) {
      if (h->state != DemuxHandle::kGo || (h->pesPid != pid && h->pesPid != 0x2000)) {
        return;
      }
      if (h->kind == DemuxHandle::kPesHere) {
        deliver(h, packet, TsPacket::kSize);
      }
      toDvr = toDvr || h->kind == DemuxHandle::kPesToDvr;
    });
    if (toDvr) {
      a->forEachDemux([&](DemuxHandle* h) {
        if (h->kind == DemuxHandle::kDvrReader) {
          deliver(h, packet, TsPacket::kSize);
        }
      });
    }
  }
}

void DvbEmulator::deliver(DemuxHandle* h, const unsigned char* data, unsigned int size) {
  if (!hasRoom(h, size)) {
    // As dmxdev: the buffer is flushed and the next read reports the loss.
    h->sections.clear();
    h->used = 0;
    h->offset = 0;
    h->error = EOVERFLOW;
  } else {
    h->sections.emplace_back(data, data + size);
    h->used += size;
    h->hasDeadline = false;  // the time-out runs only until the first section
    if (h->kind == DemuxHandle::kSections && (h->params.flags & DMX_ONESHOT)) {
      h->state = DemuxHandle::kDone;
    }
  }
  wake(h);
}

void DvbEmulator::serve(DemuxHandle* h) {
  Adapter* a = h->adapter;
  while (!h->reads.empty()) {
    fuse_req_t req = h->reads.front().first;
    size_t size = h->reads.front().second;
    int err = 0;
    if (a->removed) {
      err = ENODEV;
    } else if (a->readErrorAfter >= 0 &&
               a->sectionsRead >= static_cast<uint64_t>(a->readErrorAfter)) {
      err = EIO;
    } else if (h->error) {
      err = h->error;
      h->error = 0;
    } else if (h->sections.empty()) {
      break;
    }
    h->reads.pop_front();
    if (err) {
      fuse_reply_err(req, err);
      continue;
    }
    if (h->kind != DemuxHandle::kSections) {
      // A byte stream: as much as the read asks and the buffer holds.
      std::vector<unsigned char> out;
      while (!h->sections.empty() && out.size() < size) {
        const std::vector<unsigned char>& p = h->sections.front();
        const size_t n = std::min(size - out.size(), p.size() - h->offset);
        out.insert(out.end(), p.begin() + static_cast<long>(h->offset),
                   p.begin() + static_cast<long>(h->offset + n));
        h->offset += n;
        if (h->offset == p.size()) {
          h->used -= p.size();
          h->sections.pop_front();
          h->offset = 0;
        }
      }
      fuse_reply_buf(req, reinterpret_cast<const char*>(out.data()), out.size());
      a->cv.notify_all();
      continue;
    }
    const std::vector<unsigned char>& s = h->sections.front();
    size_t n = std::min(size, s.size() - h->offset);
    fuse_reply_buf(req, reinterpret_cast<const char*>(s.data()) + h->offset, n);
    h->offset += n;
    if (h->offset == s.size()) {
      h->used -= s.size();
      h->sections.pop_front();
      h->offset = 0;
      ++a->sectionsRead;
      a->cv.notify_all();
    }
  }
}

void DvbEmulator::wake(DemuxHandle* h) {
  serve(h);
  if (h->poll) {
    fuse_lowlevel_notify_poll(h->poll);
    fuse_pollhandle_destroy(h->poll);
    h->poll = nullptr;
  }
}

void DvbEmulator::startFilter(DemuxHandle* h) {
  h->sections.clear();
  h->used = 0;
  h->offset = 0;
  h->error = 0;
  h->started = true;
  h->state = DemuxHandle::kGo;
  h->hasDeadline = h->params.timeout != 0;
  h->deadline = Clock::now() + std::chrono::milliseconds(h->params.timeout);
  if (h->kind != DemuxHandle::kSections) {
    h->hasDeadline = false;
    return;
  }
  h->adapter->demux->enablePid(h->params.pid);
  h->adapter->cv.notify_all();
}

void DvbEmulator::stopFilter(DemuxHandle* h) {
  if (h->state < DemuxHandle::kGo) {
    return;
  }
  h->state = DemuxHandle::kSet;
  h->hasDeadline = false;
  h->sections.clear();
  h->used = 0;
  h->offset = 0;
  h->error = 0;
  h->adapter->cv.notify_all();
}

void DvbEmulator::removeAdapter(Adapter* a) {
  a->removed = true;
  for (auto& h : a->handles) {
    if (h->demux) {
      wake(static_cast<DemuxHandle*>(h.get()));
    } else if (h->poll) {
      fuse_lowlevel_notify_poll(h->poll);
      fuse_pollhandle_destroy(h->poll);
      h->poll = nullptr;
    }
  }
  if (m_options.verbose) {
    fprintf(stderr, "ostrel-dvb-emu: adapter%d removed\n", a->index);
  }
}

void DvbEmulator::pump(Adapter* a) {
  const Clock::time_point begin = Clock::now();
  const Clock::time_point removeAt =
      a->removeAfter >= 0 ? begin + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(a->removeAfter))
                          : Clock::time_point::max();
  StreamPacer pacer;
  pacer.setMode(m_options.fast ? StreamPacer::kAsFastAsPossible : StreamPacer::kByBitRate,
                m_options.bitRate);
  // The next chunk goes once the packets handed on so far have taken their
  // time at the bit rate.
  Clock::time_point due;
  bool failed = false;
  std::unique_lock<std::mutex> lock(m_mutex);
  while (!m_bStopping) {
    Clock::time_point now = Clock::now();
    if (!a->removed && now >= removeAt) {
      // The entry goes when the kernel's cache of it expires (1 s); opens
      // until then fail with ENODEV. No invalidation is sent: it could wait
      // on a lookup that the stopping session loop no longer answers.
      removeAdapter(a);
      continue;
    }
    Clock::time_point next = a->removed ? Clock::time_point::max() : removeAt;
    unsigned int started = 0;
    a->forEachDemux([&](DemuxHandle* h) {
      if (h->state != DemuxHandle::kGo) {
        return;
      }
      ++started;
      if (h->hasDeadline && h->deadline <= now) {
        h->hasDeadline = false;
        h->error = ETIMEDOUT;
        h->state = DemuxHandle::kTimedOut;
        wake(h);
      } else if (h->hasDeadline) {
        next = std::min(next, h->deadline);
      }
    });
    // As fast as possible, the stream waits for its readers, so that the
    // filters a test starts together all see its first packet.
    const bool active = started >= (a->played ? 1u : std::max(1u, m_options.startWith));
    if (a->removed || failed || (m_options.fast && !active)) {
      a->cv.wait_until(lock, next);
      continue;
    }
    if (due > now) {
      a->cv.wait_until(lock, std::min(due, next));
      continue;
    }
    lock.unlock();
    // The source loops at the end of the file, as a carousel repeats.
    TransportStreamSource::ReadResult result = a->source->read(&a->packetizer, kChunk, 0);
    lock.lock();
    if (result == TransportStreamSource::kEnd && m_options.once) {
      // The last packets, held until a sync byte after them would confirm
      // them, go now (as the simulator's tuner does at the end).
      a->lock = &lock;
      a->packetizer.finish(a->demux.get());
      a->lock = nullptr;
      failed = true;  // played once: silence from now on, deadlines still kept
      continue;
    }
    if (result == TransportStreamSource::kError || result == TransportStreamSource::kEnd) {
      fprintf(stderr, "ostrel-dvb-emu: adapter%d: %s\n", a->index,
              result == TransportStreamSource::kError ? a->source->getError().c_str()
                                                      : "the stream ended");
      failed = true;  // deadlines are still kept
      continue;
    }
    a->played = true;
    const uint64_t before = a->packetizer.getStatistics().packets;
    a->lock = &lock;
    a->packetizer.process(a);
    a->lock = nullptr;
    due = pacer.pace(nullptr,
                     static_cast<unsigned int>(a->packetizer.getStatistics().packets - before),
                     TsPacket::kSize);
  }
}

// The FUSE operations.
struct DvbEmuOps {
  using Adapter = DvbEmulator::Adapter;
  using Handle = DvbEmulator::Handle;
  using DemuxHandle = DvbEmulator::DemuxHandle;

  // The adapter and kind of an inode, or nullptr for the root or an unknown one.
  static Adapter* nodeOf(DvbEmulator* e, fuse_ino_t ino, NodeKind* kind) {
    if (ino < 2) {
      return nullptr;
    }
    size_t index = (ino - 2) / kNodesPerAdapter;
    *kind = static_cast<NodeKind>((ino - 2) % kNodesPerAdapter);
    return index < e->m_vecAdapters.size() ? e->m_vecAdapters[index].get() : nullptr;
  }

  static void fillAttr(fuse_ino_t ino, bool dir, struct stat* st) {
    memset(st, 0, sizeof(*st));
    st->st_ino = ino;
    st->st_mode = dir ? (S_IFDIR | 0755) : (S_IFREG | 0666);
    st->st_nlink = dir ? 2 : 1;
    st->st_uid = getuid();
    st->st_gid = getgid();
  }

  static void lookup(fuse_req_t req, fuse_ino_t parent, const char* name) {
    DvbEmulator* e = emulatorOf(req);
    std::lock_guard<std::mutex> lock(e->m_mutex);
    struct fuse_entry_param entry;
    memset(&entry, 0, sizeof(entry));
    entry.attr_timeout = 1.0;
    entry.entry_timeout = 1.0;
    NodeKind kind = kDir;
    Adapter* a = nodeOf(e, parent, &kind);
    if (parent == kRootIno) {
      for (auto& candidate : e->m_vecAdapters) {
        if (!candidate->removed && name == "adapter" + std::to_string(candidate->index)) {
          entry.ino = inoOf(candidate->index, kDir);
        }
      }
    } else if (a && kind == kDir && !a->removed) {
      for (NodeKind k : {kDemux, kFrontend, kDvr}) {
        if (strcmp(name, kNodeNames[k]) == 0) {
          entry.ino = inoOf(a->index, k);
        }
      }
    }
    if (entry.ino == 0) {
      fuse_reply_err(req, ENOENT);
      return;
    }
    fillAttr(entry.ino, (entry.ino - 2) % kNodesPerAdapter == kDir, &entry.attr);
    fuse_reply_entry(req, &entry);
  }

  static void getattr(fuse_req_t req, fuse_ino_t ino, struct fuse_file_info*) {
    DvbEmulator* e = emulatorOf(req);
    NodeKind kind = kDir;
    if (ino != kRootIno && !nodeOf(e, ino, &kind)) {
      fuse_reply_err(req, ENOENT);
      return;
    }
    struct stat st;
    fillAttr(ino, ino == kRootIno || kind == kDir, &st);
    fuse_reply_attr(req, &st, 1.0);
  }

  static void readdir(fuse_req_t req, fuse_ino_t ino, size_t size, off_t off,
                      struct fuse_file_info*) {
    DvbEmulator* e = emulatorOf(req);
    std::vector<std::pair<std::string, fuse_ino_t>> names = {{".", ino}, {"..", kRootIno}};
    {
      std::lock_guard<std::mutex> lock(e->m_mutex);
      NodeKind kind = kDir;
      Adapter* a = nodeOf(e, ino, &kind);
      if (ino == kRootIno) {
        for (auto& c : e->m_vecAdapters) {
          if (!c->removed) {
            names.emplace_back("adapter" + std::to_string(c->index), inoOf(c->index, kDir));
          }
        }
      } else if (a && kind == kDir) {
        names.emplace_back(kNodeNames[kDemux], inoOf(a->index, kDemux));
        names.emplace_back(kNodeNames[kFrontend], inoOf(a->index, kFrontend));
        names.emplace_back(kNodeNames[kDvr], inoOf(a->index, kDvr));
      } else {
        fuse_reply_err(req, ENOTDIR);
        return;
      }
    }
    std::vector<char> buf(size);
    size_t used = 0;
    for (size_t i = static_cast<size_t>(off); i < names.size(); ++i) {
      struct stat st;
      fillAttr(names[i].second, i < 2 || names[i].first.compare(0, 7, "adapter") == 0, &st);
      size_t n = fuse_add_direntry(req, buf.data() + used, size - used, names[i].first.c_str(), &st,
                                   static_cast<off_t>(i + 1));
      if (n > size - used) {
        break;
      }
      used += n;
    }
    fuse_reply_buf(req, buf.data(), used);
  }

  static void open(fuse_req_t req, fuse_ino_t ino, struct fuse_file_info* fi) {
    DvbEmulator* e = emulatorOf(req);
    std::lock_guard<std::mutex> lock(e->m_mutex);
    NodeKind kind = kDir;
    Adapter* a = nodeOf(e, ino, &kind);
    if (!a || kind == kDir) {
      fuse_reply_err(req, a ? EISDIR : ENOENT);
      return;
    }
    if (a->removed) {
      fuse_reply_err(req, ENODEV);
      return;
    }
    bool writable = (fi->flags & O_ACCMODE) != O_RDONLY;
    std::unique_ptr<Handle> h;
    if (kind == kDemux || kind == kDvr) {
      size_t open = 0;
      a->forEachDemux([&](DemuxHandle* d) { open += d->kind != DemuxHandle::kDvrReader; });
      if (kind == kDemux && open >= e->m_options.filters) {
        fuse_reply_err(req, EMFILE);
        return;
      }
      DemuxHandle* d = new DemuxHandle;
      memset(&d->params, 0, sizeof(d->params));
      if (kind == kDvr) {
        // dvr0 carries, from its open on, what the TS_TAP filters pass.
        d->kind = DemuxHandle::kDvrReader;
        d->bufferSize = kDvrBufferSize;
        d->started = true;
        d->state = DemuxHandle::kGo;
      }
      h.reset(d);
    } else {
      // One writer at a time on a frontend, any number of readers.
      if (writable && a->frontendWriter) {
        fuse_reply_err(req, EBUSY);
        return;
      }
      a->frontendWriter = a->frontendWriter || writable;
      h.reset(new Handle);
    }
    h->adapter = a;
    h->demux = kind == kDemux || kind == kDvr;
    h->writable = writable;
    fi->fh = reinterpret_cast<uint64_t>(h.get());
    fi->direct_io = 1;
    fi->nonseekable = 1;
    a->handles.push_back(std::move(h));
    fuse_reply_open(req, fi);
  }

  static void release(fuse_req_t req, fuse_ino_t, struct fuse_file_info* fi) {
    DvbEmulator* e = emulatorOf(req);
    std::lock_guard<std::mutex> lock(e->m_mutex);
    Handle* h = reinterpret_cast<Handle*>(fi->fh);
    Adapter* a = h->adapter;
    if (!h->demux && h->writable) {
      a->frontendWriter = false;
    }
    if (h->demux) {
      DemuxHandle* d = static_cast<DemuxHandle*>(h);
      for (auto& r : d->reads) {
        fuse_reply_err(r.first, EBADF);
      }
    }
    if (h->poll) {
      fuse_pollhandle_destroy(h->poll);
    }
    a->handles.erase(std::find_if(a->handles.begin(), a->handles.end(),
                                  [h](const std::unique_ptr<Handle>& p) { return p.get() == h; }));
    a->cv.notify_all();
    fuse_reply_err(req, 0);
  }

  static void interrupted(fuse_req_t req, void* data) {
    DvbEmulator* e = static_cast<DvbEmulator*>(data);
    std::lock_guard<std::mutex> lock(e->m_mutex);
    for (auto& a : e->m_vecAdapters) {
      a->forEachDemux([&](DemuxHandle* h) {
        for (auto it = h->reads.begin(); it != h->reads.end(); ++it) {
          if (it->first == req) {
            h->reads.erase(it);
            fuse_reply_err(req, EINTR);
            return;
          }
        }
      });
    }
  }

  static void read(fuse_req_t req, fuse_ino_t, size_t size, off_t, struct fuse_file_info* fi) {
    DvbEmulator* e = emulatorOf(req);
    Handle* base = reinterpret_cast<Handle*>(fi->fh);
    if (!base->demux) {
      fuse_reply_err(req, EINVAL);  // a frontend has no read
      return;
    }
    // Registered before our lock is taken: an interrupt that came already
    // calls back at once, and the callback takes our lock.
    fuse_req_interrupt_func(req, interrupted, e);
    std::lock_guard<std::mutex> lock(e->m_mutex);
    DemuxHandle* h = static_cast<DemuxHandle*>(base);
    Adapter* a = h->adapter;
    if (a->removed) {
      fuse_reply_err(req, ENODEV);
      return;
    }
    if (!h->started) {
      fuse_reply_buf(req, nullptr, 0);  // no buffer before the first start
      return;
    }
    bool ready = h->error || !h->sections.empty() ||
                 (a->readErrorAfter >= 0 && a->sectionsRead >= uint64_t(a->readErrorAfter));
    if (!ready && (fi->flags & O_NONBLOCK)) {
      fuse_reply_err(req, EAGAIN);
      return;
    }
    if (!ready && fuse_req_interrupted(req)) {
      fuse_reply_err(req, EINTR);
      return;
    }
    h->reads.emplace_back(req, size);
    e->serve(h);
  }

  static void poll(fuse_req_t req, fuse_ino_t, struct fuse_file_info* fi,
                   struct fuse_pollhandle* ph) {
    DvbEmulator* e = emulatorOf(req);
    std::lock_guard<std::mutex> lock(e->m_mutex);
    Handle* base = reinterpret_cast<Handle*>(fi->fh);
    unsigned int events = 0;
    if (base->adapter->removed) {
      events = POLLERR;
    } else if (base->demux) {
      DemuxHandle* h = static_cast<DemuxHandle*>(base);
      if (h->state >= DemuxHandle::kGo) {
        if (h->error) {
          events |= POLLIN | POLLRDNORM | POLLPRI | POLLERR;
        }
        if (!h->sections.empty()) {
          events |= POLLIN | POLLRDNORM | POLLPRI;
        }
      }
    }
    if (ph) {
      if (base->poll) {
        fuse_pollhandle_destroy(base->poll);
      }
      base->poll = ph;
    }
    fuse_reply_poll(req, events);
  }

  static void ioctl(fuse_req_t req, fuse_ino_t, unsigned int cmd, void* arg,
                    struct fuse_file_info* fi, unsigned flags, const void* in, size_t inSize,
                    size_t) {
    DvbEmulator* e = emulatorOf(req);
    if (flags & FUSE_IOCTL_COMPAT) {
      fuse_reply_err(req, ENOSYS);
      return;
    }
    std::unique_lock<std::mutex> lock(e->m_mutex);
    Handle* base = reinterpret_cast<Handle*>(fi->fh);
    if (e->m_options.verbose) {
      fprintf(stderr, "ostrel-dvb-emu: adapter%d %s ioctl 0x%08x\n", base->adapter->index,
              base->demux ? "demux/dvr" : "frontend", cmd);
    }
    if (base->adapter->removed) {
      fuse_reply_err(req, ENODEV);
      return;
    }
    if (base->demux) {
      DemuxHandle* d = static_cast<DemuxHandle*>(base);
      if (d->kind == DemuxHandle::kDvrReader && cmd != DMX_SET_BUFFER_SIZE) {
        fuse_reply_err(req, ENOTTY);  // dvr0 takes only its buffer size
      } else {
        demuxIoctl(e, req, d, cmd, arg, in, inSize);
      }
    } else {
      lock.unlock();  // the frontend has no shared state but the options
      frontendIoctl(e, req, base, cmd, arg, in, inSize);
    }
  }

  static void demuxIoctl(DvbEmulator* e, fuse_req_t req, DemuxHandle* h, unsigned int cmd,
                         void* arg, const void* in, size_t inSize) {
    int err = 0;
    switch (cmd) {
      case DMX_SET_BUFFER_SIZE: {
        unsigned long size = reinterpret_cast<unsigned long>(arg);
        if (size == 0 || size > (1u << 24)) {
          err = EINVAL;
        } else if (h->state >= DemuxHandle::kGo && h->kind != DemuxHandle::kDvrReader) {
          err = EBUSY;
        } else {
          h->bufferSize = static_cast<unsigned int>(size);
          h->sections.clear();
          h->used = 0;
          h->offset = 0;
          h->error = 0;
        }
        break;
      }
      case DMX_SET_FILTER: {
        if (inSize < sizeof(dmx_sct_filter_params)) {
          err = EFAULT;
          break;
        }
        dmx_sct_filter_params p;
        memcpy(&p, in, sizeof(p));
        int refuse = h->adapter->refusePid;
        if (refuse == -1 || refuse == p.pid) {
          err = EINVAL;
          break;
        }
        e->stopFilter(h);
        h->kind = DemuxHandle::kSections;
        h->params = p;
        for (unsigned char& m : h->params.filter.mode) {
          m ^= 0xFF;
        }
        h->state = DemuxHandle::kSet;
        if (p.flags & DMX_IMMEDIATE_START) {
          err = p.pid > 0x1FFF ? EINVAL : 0;
          if (!err) {
            e->startFilter(h);
          }
        }
        break;
      }
      case DMX_START:
        if (h->state < DemuxHandle::kSet ||
            (h->kind == DemuxHandle::kSections ? h->params.pid > 0x1FFF : h->pesPid > 0x2000)) {
          err = EINVAL;
        } else {
          e->startFilter(h);
        }
        break;
      case DMX_STOP:
        e->stopFilter(h);
        break;
      case DMX_SET_PES_FILTER: {
        // Transport packets of one PID (0x2000: all) from the frontend, to
        // this handle, to dvr0 or to the decoder (dropped); PES payloads
        // (DMX_OUT_TAP) are not emulated.
        if (inSize < sizeof(dmx_pes_filter_params)) {
          err = EFAULT;
          break;
        }
        dmx_pes_filter_params p;
        memcpy(&p, in, sizeof(p));
        if (p.input != DMX_IN_FRONTEND || p.pid > 0x2000 || p.output == DMX_OUT_TAP ||
            p.output > DMX_OUT_TSDEMUX_TAP) {
          err = EINVAL;
          break;
        }
        e->stopFilter(h);
        h->kind = p.output == DMX_OUT_TSDEMUX_TAP ? DemuxHandle::kPesHere
                  : p.output == DMX_OUT_TS_TAP    ? DemuxHandle::kPesToDvr
                                                  : DemuxHandle::kPesDecoder;
        h->pesPid = p.pid;
        h->state = DemuxHandle::kSet;
        if (p.flags & DMX_IMMEDIATE_START) {
          e->startFilter(h);
        }
        break;
      }
      default:
        err = ENOTTY;
    }
    replyIoctl(req, err, nullptr, 0);
  }

  static void replyIoctl(fuse_req_t req, int err, const void* out, size_t size) {
    if (err) {
      fuse_reply_err(req, err);
    } else {
      fuse_reply_ioctl(req, 0, out, size);
    }
  }

  static void frontendIoctl(DvbEmulator* e, fuse_req_t req, Handle* h, unsigned int cmd, void* arg,
                            const void* in, size_t inSize) {
    // A read-only frontend answers only the commands that read.
    if (!h->writable && (_IOC_DIR(cmd) != _IOC_READ || cmd == FE_GET_EVENT)) {
      fuse_reply_err(req, EPERM);
      return;
    }
    switch (cmd) {
      case FE_GET_INFO: {
        struct dvb_frontend_info info;
        memset(&info, 0, sizeof(info));
        snprintf(info.name, sizeof(info.name), "Ostrel emulated ISDB-T");
        info.type = FE_OFDM;
        info.frequency_min = 470000000;
        info.frequency_max = 806000000;
        info.frequency_stepsize = 142857;
        info.caps = static_cast<fe_caps>(FE_CAN_INVERSION_AUTO | FE_CAN_FEC_AUTO | FE_CAN_QAM_AUTO |
                                         FE_CAN_TRANSMISSION_MODE_AUTO |
                                         FE_CAN_GUARD_INTERVAL_AUTO | FE_CAN_HIERARCHY_AUTO);
        replyIoctl(req, 0, &info, sizeof(info));
        return;
      }
      case FE_READ_STATUS: {
        fe_status_t status = static_cast<fe_status_t>(FE_HAS_SIGNAL | FE_HAS_CARRIER |
                                                      FE_HAS_VITERBI | FE_HAS_SYNC | FE_HAS_LOCK);
        replyIoctl(req, 0, &status, sizeof(status));
        return;
      }
      case FE_READ_BER:
      case FE_READ_UNCORRECTED_BLOCKS: {
        uint32_t zero = 0;
        replyIoctl(req, 0, &zero, sizeof(zero));
        return;
      }
      case FE_READ_SIGNAL_STRENGTH:
      case FE_READ_SNR: {
        uint16_t value = 0xC000;
        replyIoctl(req, 0, &value, sizeof(value));
        return;
      }
      case FE_GET_FRONTEND: {
        struct dvb_frontend_parameters p;
        memset(&p, 0, sizeof(p));
        p.frequency = e->m_options.frequency;
        p.inversion = INVERSION_AUTO;
        p.u.ofdm.bandwidth = BANDWIDTH_6_MHZ;
        p.u.ofdm.code_rate_HP = FEC_AUTO;
        p.u.ofdm.code_rate_LP = FEC_AUTO;
        p.u.ofdm.constellation = QAM_AUTO;
        p.u.ofdm.transmission_mode = TRANSMISSION_MODE_AUTO;
        p.u.ofdm.guard_interval = GUARD_INTERVAL_AUTO;
        p.u.ofdm.hierarchy_information = HIERARCHY_AUTO;
        replyIoctl(req, 0, &p, sizeof(p));
        return;
      }
      case FE_SET_FRONTEND:
        replyIoctl(req, 0, nullptr, 0);  // always tuned to its stream
        return;
      case FE_GET_EVENT:
        fuse_reply_err(req, EWOULDBLOCK);
        return;
      case FE_GET_PROPERTY:
      case FE_SET_PROPERTY:
        properties(e, req, cmd, arg, in, inSize);
        return;
      default:
        fuse_reply_err(req, ENOTTY);
    }
  }

  // FE_GET_PROPERTY and FE_SET_PROPERTY: the array the argument points to is
  // read and written in the caller's memory.
  static void properties(DvbEmulator* e, fuse_req_t req, unsigned int cmd, void* arg,
                         const void* in, size_t inSize) {
    pid_t pid = fuse_req_ctx(req)->pid;
    struct dtv_properties list;
    if (inSize >= sizeof(list)) {
      memcpy(&list, in, sizeof(list));
    } else if (!callerMemory(pid, &list, arg, sizeof(list), false)) {
      fuse_reply_err(req, errno == ESRCH ? ESRCH : EFAULT);
      return;
    }
    if (list.num == 0 || list.num > DTV_IOCTL_MAX_MSGS) {
      fuse_reply_err(req, EINVAL);
      return;
    }
    std::vector<struct dtv_property> props(list.num);
    size_t bytes = props.size() * sizeof(struct dtv_property);
    if (!callerMemory(pid, props.data(), list.props, bytes, false)) {
      fuse_reply_err(req, EFAULT);
      return;
    }
    if (cmd == FE_SET_PROPERTY) {
      replyIoctl(req, 0, nullptr, 0);  // tuning changes nothing: the stream stays
      return;
    }
    for (struct dtv_property& p : props) {
      p.result = 0;
      memset(&p.u, 0, sizeof(p.u));
      switch (p.cmd) {
        case DTV_ENUM_DELSYS:
          p.u.buffer.data[0] = SYS_ISDBT;
          p.u.buffer.len = 1;
          break;
        case DTV_DELIVERY_SYSTEM:
          p.u.data = SYS_ISDBT;
          break;
        case DTV_API_VERSION:
          p.u.data = (DVB_API_VERSION << 8) | DVB_API_VERSION_MINOR;
          break;
        case DTV_FREQUENCY:
          p.u.data = e->m_options.frequency;
          break;
        case DTV_BANDWIDTH_HZ:
          p.u.data = 6000000;
          break;
        case DTV_INVERSION:
          p.u.data = INVERSION_AUTO;
          break;
        default:
          break;  // every other value reads as 0
      }
    }
    if (!callerMemory(pid, props.data(), list.props, bytes, true)) {
      fuse_reply_err(req, EFAULT);
      return;
    }
    replyIoctl(req, 0, nullptr, 0);
  }
};

bool DvbEmulator::mount(std::string* error) {
  for (auto& a : m_vecAdapters) {
    std::string why;
    a->source = TransportStreamSource::openFile(a->path, &why);
    if (!a->source || !a->source->isLooping() || a->source->getSize() < TsPacket::kSize) {
      *error = why.empty() ? "cannot read a transport stream from " + a->path : why;
      return false;
    }
    a->source->setLoop(!m_options.once);
  }
  struct fuse_lowlevel_ops ops;
  memset(&ops, 0, sizeof(ops));
  ops.lookup = DvbEmuOps::lookup;
  ops.getattr = DvbEmuOps::getattr;
  ops.readdir = DvbEmuOps::readdir;
  ops.open = DvbEmuOps::open;
  ops.release = DvbEmuOps::release;
  ops.read = DvbEmuOps::read;
  ops.poll = DvbEmuOps::poll;
  ops.ioctl = DvbEmuOps::ioctl;
  std::string mountOptions = "fsname=ostrel-dvb-emu,subtype=ostrel-dvb-emu,default_permissions";
  if (getuid() == 0) {
    mountOptions += ",allow_other";
  }
  const char* argv[] = {"ostrel-dvb-emu", "-o", mountOptions.c_str()};
  struct fuse_args args = FUSE_ARGS_INIT(3, const_cast<char**>(argv));
  m_pSession = fuse_session_new(&args, &ops, sizeof(ops), this);
  fuse_opt_free_args(&args);
  if (!m_pSession) {
    *error = "cannot start a FUSE session";
    return false;
  }
  if (fuse_session_mount(m_pSession, m_options.root.c_str()) != 0) {
    *error = "cannot mount at " + m_options.root + " (is /dev/fuse there, and may we mount?)";
    return false;
  }
  m_bMounted = true;
  return true;
}

int DvbEmulator::run() {
  if (fuse_set_signal_handlers(m_pSession) != 0) {
    return 1;
  }
  // The players must not take the signals that end the session loop.
  sigset_t block, old;
  sigemptyset(&block);
  for (int s : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
    sigaddset(&block, s);
  }
  pthread_sigmask(SIG_BLOCK, &block, &old);
  for (auto& a : m_vecAdapters) {
    Adapter* raw = a.get();
    a->thread = std::thread([this, raw] { pump(raw); });
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  int rc = fuse_session_loop(m_pSession);
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bStopping = true;
  }
  for (auto& a : m_vecAdapters) {
    a->cv.notify_all();
    a->thread.join();
  }
  {
    // Reads still blocked end as on a removed device.
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& a : m_vecAdapters) {
      a->forEachDemux([](DemuxHandle* h) {
        for (auto& r : h->reads) {
          fuse_reply_err(r.first, ENODEV);
        }
        h->reads.clear();
      });
    }
  }
  fuse_session_unmount(m_pSession);
  m_bMounted = false;
  fuse_remove_signal_handlers(m_pSession);
  return rc < 0 && rc != -EINTR ? 1 : 0;
}

}  // namespace Ostrel
