#ifndef OSTREL_EXAMPLE_FILE_SOURCE_H
#define OSTREL_EXAMPLE_FILE_SOURCE_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <SectionSource.h>

// A receiver with one terrestrial tuner (id 0) that plays a transport-stream
// file in a loop at a fixed bit rate: the section source of the integration
// guide (docs/integration.md). A ServerEngine over it is a complete server.
//
// Pull model: the stream plays only while the engine's delivery thread is in
// readSection, which reads the packets as they fall due, reassembles the
// sections of the PIDs whose filters are open and returns the first one that
// is complete. The filters and the reassembly belong to that thread alone
// (shutdown closes the last filters once it has ended); the lock guards only
// the interrupt flag, which any thread may raise. CRCs are not checked here:
// the engine checks them.
class FileSource : public Ostrel::SectionSource {
 public:
  // Reads the whole file; isOpen() tells whether it held a packet. bitRate
  // in bits per second (0: 4 Mbit/s).
  FileSource(const std::string& path, unsigned int bitRate);

  bool isOpen() const { return !m_vecStream.empty(); }

  virtual int getTunerCount() const { return 1; }
  virtual bool getTuners(std::vector<Tuner>* tuners);
  virtual bool openFilter(int tunerId, unsigned short pid);
  virtual void closeFilter(int tunerId, unsigned short pid);
  virtual ReadResult readSection(int timeoutMs, Section* section);
  virtual void interrupt();

 private:
  typedef std::chrono::steady_clock Clock;

  // Cuts one packet's payload into the sections of its PID, if filtered.
  void readPacket(const unsigned char* packet);
  void appendPayload(unsigned short pid, const unsigned char* begin, const unsigned char* end,
                     std::vector<unsigned char>* buffer);

  std::vector<unsigned char> m_vecStream;  // whole packets
  const std::chrono::nanoseconds m_packetTime;

  // Delivery thread only.
  unsigned int m_uiPacket;      // the next packet's index
  Clock::time_point m_nextDue;  // when it is due; unset until the first read
  std::map<unsigned short, std::vector<unsigned char>> m_mapFilters;  // PID: section so far
  std::deque<Section> m_dequeReady;  // complete sections not yet returned

  std::mutex m_mutex;
  std::condition_variable m_condInterrupt;
  bool m_bInterrupted;  // guarded by m_mutex
};

#endif  // OSTREL_EXAMPLE_FILE_SOURCE_H
