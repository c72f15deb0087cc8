#ifndef OSTREL_SIM_TS_PACKET_SINK_H
#define OSTREL_SIM_TS_PACKET_SINK_H

namespace Ostrel {

// Receives transport-stream packets in runs: count packets of 188 bytes, the
// first at first and each next one stride bytes further on (188, 192 or 204).
// The bytes are lent for the call.
class TsPacketSink {
 public:
  virtual ~TsPacketSink() {}
  virtual void onPackets(const unsigned char* first, unsigned int count, unsigned int stride) = 0;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_TS_PACKET_SINK_H
