#ifndef OSTREL_SIM_TRANSPORT_STREAM_SOURCE_H
#define OSTREL_SIM_TRANSPORT_STREAM_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Ostrel {

class TsPacketizer;

// Where a tuner's bytes come from: a file, standard input (or any pipe), UDP
// datagrams (udp://[group@]address:port, multicast or unicast, of plain
// packets or of packets in RTP, as IPTV head-ends send them), RTP over UDP
// (rtp://, the same address form, every datagram RTP) or a buffer in memory.
// openFile picks the kind by the input's scheme, from one table; each kind is
// a class of its own in TransportStreamSource.cpp. A file or buffer can loop,
// starting again at its beginning when it ends, as a broadcast carousel
// repeats; a pipe or socket cannot. Used by one reader thread.
class TransportStreamSource {
 public:
  enum ReadResult {
    kData,       // bytes were added to the packetizer
    kNoDataYet,  // a pipe had nothing within the time allowed
    kLooped,     // the end was reached and reading starts again at the beginning
    kEnd,        // the end was reached and there is no more
    kError       // reading failed; getError() says why
  };

  virtual ~TransportStreamSource();

  // Opens a file, standard input for "-", or a socket for a udp:// or rtp://
  // URL. Null, with *error set, when it cannot be opened or its scheme is
  // unknown.
  static std::unique_ptr<TransportStreamSource> openFile(const std::string& path,
                                                         std::string* error);
  static std::unique_ptr<TransportStreamSource> fromMemory(std::vector<unsigned char> bytes,
                                                           const std::string& name);

  // Looping applies to files and buffers only; it is on by default for them.
  void setLoop(bool loop) { m_bLoop = loop && m_bSeekable; }
  bool isLooping() const { return m_bLoop; }
  bool isSeekable() const { return m_bSeekable; }

  // Reads up to maxBytes into the packetizer (a datagram source one datagram);
  // a pipe or socket waits at most timeoutMs for data.
  ReadResult read(TsPacketizer* packetizer, size_t maxBytes, int timeoutMs);

  const std::string& getName() const { return m_strName; }
  const std::string& getError() const { return m_strError; }
  bool isNetwork() const { return m_bDatagrams; }
  // Size of a file or buffer, 0 for a pipe or socket.
  uint64_t getSize() const { return m_ullSize; }
  // Bytes read since the start of the current pass.
  uint64_t getPosition() const { return m_ullPosition; }
  // How many times the input started again.
  uint64_t getLoops() const { return m_ullLoops; }

 protected:
  TransportStreamSource(const std::string& name, bool datagrams, bool seekable, uint64_t size);

  // What a kind of input does: read some bytes into the packetizer (kData,
  // with *got set), or say there are none yet, that it ended (kEnd) or failed
  // (through fail()); and start again at the beginning, false with errno set
  // when it cannot.
  virtual ReadResult readSome(TsPacketizer* packetizer, size_t maxBytes, int timeoutMs,
                              size_t* got) = 0;
  virtual bool rewind() { return false; }
  // Records errno's message for this input and returns kError.
  ReadResult fail();

 private:
  TransportStreamSource(const TransportStreamSource&);
  TransportStreamSource& operator=(const TransportStreamSource&);

  std::string m_strName;
  std::string m_strError;
  bool m_bDatagrams;
  bool m_bSeekable;
  bool m_bLoop;
  uint64_t m_ullSize;
  uint64_t m_ullPosition;
  uint64_t m_ullLoops;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_TRANSPORT_STREAM_SOURCE_H
