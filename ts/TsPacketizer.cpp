#include "TsPacketizer.h"

#include <cstring>

#include "TsPacket.h"

namespace Ostrel {

namespace {
// Grown to the largest read asked for; what is left of the last read (part of
// a packet) moves to the front before the next, so that the same pages are
// written again rather than new ones touched.
const size_t kInitialBuffer = 64 * 1024;
const size_t kSlack = 4096;
// Sizes tried when searching sync, the plain size first.
const unsigned int kSizes[] = {188, 204, 192};
}  // namespace

TsPacketizer::TsPacketizer()
    : m_vecBuffer(kInitialBuffer), m_uiStart(0), m_uiEnd(0), m_uiPacketSize(0) {}

unsigned char* TsPacketizer::getWritableArea(size_t minimum, size_t* capacity) {
  const size_t kept = m_uiEnd - m_uiStart;
  if (m_uiStart > 0 && (kept <= minimum || m_vecBuffer.size() - m_uiEnd < minimum)) {
    if (kept > 0) {
      std::memmove(&m_vecBuffer[0], &m_vecBuffer[m_uiStart], kept);
    }
    m_uiStart = 0;
    m_uiEnd = kept;
  }
  if (m_vecBuffer.size() - m_uiEnd < minimum) {
    // With room for what the next read leaves over, which would otherwise
    // double the buffer.
    m_vecBuffer.resize(m_uiEnd + minimum + kSlack);
  }
  *capacity = m_vecBuffer.size() - m_uiEnd;
  return &m_vecBuffer[m_uiEnd];
}

void TsPacketizer::commit(size_t size) {
  m_uiEnd += size;
  if (m_uiEnd > m_vecBuffer.size()) {
    m_uiEnd = m_vecBuffer.size();
  }
}

void TsPacketizer::push(const unsigned char* data, size_t size) {
  size_t capacity = 0;
  unsigned char* area = getWritableArea(size, &capacity);
  if (size > 0) {
    std::memcpy(area, data, size);
  }
  commit(size);
}

void TsPacketizer::process(TsPacketSink* sink) {
  processFrom(sink, false);
}

void TsPacketizer::finish(TsPacketSink* sink) {
  processFrom(sink, true);
  m_stats.truncatedBytes += m_uiEnd - m_uiStart;
  m_uiStart = 0;
  m_uiEnd = 0;
  m_uiPacketSize = 0;
}

bool TsPacketizer::isSyncRun(size_t position, unsigned int size, unsigned int count) const {
  for (unsigned int k = 0; k < count; ++k) {
    if (m_vecBuffer[position + k * size] != TsPacket::kSyncByte) {
      return false;
    }
  }
  return true;
}

// Looks for kLockCount sync bytes in a row, one packet size apart, from
// m_uiStart on. Leaves m_uiStart at the first packet when it finds one, or at
// the first candidate that needs more data to be judged.
bool TsPacketizer::findSync(bool final) {
  const size_t longest = (kLockCount - 1) * 204 + 1;
  size_t i = m_uiStart;
  while (i < m_uiEnd) {
    const void* hit = std::memchr(&m_vecBuffer[i], TsPacket::kSyncByte, m_uiEnd - i);
    if (!hit) {
      i = m_uiEnd;
      break;
    }
    i = static_cast<const unsigned char*>(hit) - &m_vecBuffer[0];
    size_t available = m_uiEnd - i;
    if (!final && available < longest) {
      break;  // wait for enough data to judge every size
    }
    for (size_t s = 0; s < sizeof(kSizes) / sizeof(kSizes[0]); ++s) {
      unsigned int size = kSizes[s];
      unsigned int count = kLockCount;
      if (final) {
        if (available < TsPacket::kSize) {
          continue;
        }
        size_t positions = (available - 1) / size + 1;
        if (positions < count) {
          count = static_cast<unsigned int>(positions);
        }
        // A lone packet cannot tell the sizes apart: take it as a plain one.
        if (count < 2 && size != TsPacket::kSize) {
          continue;
        }
      }
      if (isSyncRun(i, size, count)) {
        if (size == 192) {
          // A time stamp may hold sync-like bytes in every packet: the sync
          // byte proper is the last of the aligned runs within the stamp.
          for (size_t j = i + 4; j > i; --j) {
            if (j + (count - 1) * size < m_uiEnd && isSyncRun(j, size, count)) {
              i = j;
              break;
            }
          }
        }
        m_stats.skippedBytes += i - m_uiStart;
        m_uiStart = i;
        m_uiPacketSize = size;
        return true;
      }
    }
    ++i;
  }
  m_stats.skippedBytes += i - m_uiStart;
  m_uiStart = i;
  return false;
}

// When packet p is not followed by a sync byte, it is either torn (the next
// packet starts inside it) or whole and followed by garbage. 1: torn; 0:
// whole; -1: more data is needed to tell.
int TsPacketizer::isTorn(size_t p, unsigned int size, bool final) const {
  const unsigned int kRun = 3;
  if (!final && p + size + (kRun - 1) * size >= m_uiEnd) {
    return -1;
  }
  for (size_t q = p + 1; q < p + size && q < m_uiEnd; ++q) {
    if (m_vecBuffer[q] != TsPacket::kSyncByte) {
      continue;
    }
    unsigned int count = kRun;
    size_t positions = (m_uiEnd - q - 1) / size + 1;
    if (positions < count) {
      count = static_cast<unsigned int>(positions);
    }
    if (count >= 2 && isSyncRun(q, size, count)) {
      return 1;
    }
  }
  return 0;
}

void TsPacketizer::processFrom(TsPacketSink* sink, bool final) {
  for (;;) {
    if (m_uiPacketSize == 0 && !findSync(final)) {
      return;
    }
    const unsigned int size = m_uiPacketSize;
    const unsigned char* buffer = &m_vecBuffer[0];
    size_t p = m_uiStart;
    size_t runStart = p;
    unsigned int runCount = 0;
    bool lost = false;
    bool distrusted = false;  // the packet at p is not to be taken
    for (;;) {
      if (p + TsPacket::kSize > m_uiEnd) {
        break;
      }
      if (buffer[p] != TsPacket::kSyncByte) {
        lost = true;
        break;
      }
      bool whole = true;
      if (p + size >= m_uiEnd) {
        if (!final) {
          break;  // wait to see where the next packet starts
        }
      } else if (buffer[p + size] != TsPacket::kSyncByte) {
        // A torn packet is never taken for a whole one.
        int torn = isTorn(p, size, final);
        if (torn < 0) {
          break;
        }
        lost = true;
        if (torn) {
          distrusted = true;
          break;
        }
        whole = false;  // whole, but garbage follows it
      }
      if (runCount == 0) {
        runStart = p;
      }
      ++runCount;
      p += size;
      if (!whole) {
        break;
      }
    }
    if (runCount > 0) {
      m_stats.packets += runCount;
      sink->onPackets(buffer + runStart, runCount, size);
    }
    m_uiStart = p < m_uiEnd ? p : m_uiEnd;
    if (!lost) {
      return;
    }
    ++m_stats.syncLosses;
    m_uiPacketSize = 0;
    if (distrusted) {
      ++m_uiStart;  // search again just after its sync byte
      ++m_stats.skippedBytes;
    }
  }
}

}  // namespace Ostrel
