#ifndef OSTREL_EXAMPLE_FILE_SERVER_H
#define OSTREL_EXAMPLE_FILE_SERVER_H

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <GingaServer.h>

namespace Ostrel {
class TCommand;
class TDataRequestCommand;
}  // namespace Ostrel

// A minimal receiver with one tuner (id 0) that plays a transport-stream file
// in a loop at a fixed bit rate and answers the core's table requests from it.
//
// An open data request waits for the first section with its key, which goes to
// the data destination with injectData on the delivery thread, and is then
// closed; a request that sees no such section within its time-out is closed
// unanswered (the core reports that time-out itself). Everything else (sync
// requests, keys, video, status) is refused: the core reports -5.
//
// Threads: execute on any thread, injectData on the delivery thread with no
// lock of this class held, so a notification may make the next request.
class FileServer : public Ostrel::GingaServer {
 public:
  // Reads the whole file; isOpen() tells whether it could.
  FileServer(const std::string& path, unsigned int bitRate);
  virtual ~FileServer();

  bool isOpen() const { return !m_vecStream.empty(); }
  void start();  // starts the delivery thread
  void stop();   // stops and joins it; open requests stay held until destruction

  virtual int execute(Ostrel::TCommand* command, Ostrel::TCommand** response);

 private:
  typedef std::chrono::steady_clock Clock;
  struct OpenRequest {
    Ostrel::TDataRequestCommand* command;
    Clock::time_point passFrom;  // no delivery before: the sender records it first
    Clock::time_point deadline;
  };
  struct Section {
    unsigned short pid;
    std::vector<unsigned char> bytes;
  };

  int openRequest(Ostrel::TDataRequestCommand* command);
  void deliveryLoop();
  // Cuts the next packet into sections; appends the complete ones.
  void readPacket(const unsigned char* packet, std::vector<Section>* sections);
  void appendPayload(unsigned short pid, const unsigned char* begin, const unsigned char* end,
                     std::vector<unsigned char>* buffer, std::vector<Section>* sections);
  // The open request the section answers, taken out of m_vecOpen; null if none.
  Ostrel::TDataRequestCommand* takeMatch(const Section& section, Clock::time_point now);
  void takeExpired(Clock::time_point now, std::vector<Ostrel::TDataRequestCommand*>* expired);

  std::vector<unsigned char> m_vecStream;
  const unsigned int m_uiBitRate;
  std::map<unsigned short, std::vector<unsigned char>> m_mapAssembly;  // delivery thread only

  std::mutex m_mutex;  // guards the three fields below
  std::condition_variable m_condStop;
  bool m_bStop;
  std::vector<OpenRequest> m_vecOpen;
  std::thread::id m_deliveryId;
  std::thread m_thread;  // started and joined by start() and stop() only
};

#endif  // OSTREL_EXAMPLE_FILE_SERVER_H
