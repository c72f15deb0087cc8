#ifndef OSTREL_SIM_SECTION_SINK_H
#define OSTREL_SIM_SECTION_SINK_H

namespace Ostrel {

// Receives complete, checked sections from a demultiplexer. The bytes are
// lent for the call; it runs on the thread that feeds the demultiplexer.
class SectionSink {
 public:
  virtual ~SectionSink() {}
  virtual void onSection(int tunerId, unsigned short pid, const unsigned char* data,
                         unsigned int size) = 0;
  // Called once a batch of packets (SectionDemux::onPackets) has been
  // demultiplexed: a sink that gathers sections may hand them on now.
  virtual void onPacketsDone(int tunerId) { (void)tunerId; }
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SECTION_SINK_H
