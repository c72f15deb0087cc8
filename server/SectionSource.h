#ifndef OSTREL_SECTION_SOURCE_H
#define OSTREL_SECTION_SOURCE_H

#include <vector>

namespace Ostrel {

class TCommand;

// Where sections come from: a transport-stream player, a Linux DVB demux, a
// receiver's own demux. A ServerEngine drives one source; the source does
// only what differs between them. openFilter, closeFilter and readSection are
// called on the engine's delivery thread (closeFilter and readingStopped
// also by shutdown, once that thread has ended); getTunerCount, getTuners, findCarried and
// executeControl on the threads that execute commands; interrupt on any
// thread. getFilterLimit is called with the engine's lock held and must not
// call back into it; every other operation is called with no lock of the
// engine held.
class SectionSource {
 public:
  struct Tuner {
    int id;
    unsigned char type;
  };

  // One section read from an open filter, or the filter that failed.
  struct Section {
    Section() : tunerId(0), pid(0), intact(false) {}
    int tunerId;
    unsigned short pid;
    std::vector<unsigned char> data;  // whole section
    // The source has checked it as the engine would (whole, and its CRC_32
    // holds where it carries one), so the engine does not check it again;
    // false: the engine checks. The engine clears it before each read.
    bool intact;
  };

  enum ReadResult {
    kSection,       // *section holds a section
    kNothing,       // the wait ended, or interrupt() was called
    kFilterFailed,  // section->tunerId and pid name a filter whose device failed
  };

  virtual ~SectionSource() {}

  // How many tuners the source has; their ids are 0 to count - 1.
  virtual int getTunerCount() const = 0;

  // Fills *tuners for the tuner-list command; false when none answers.
  virtual bool getTuners(std::vector<Tuner>* tuners) = 0;

  // How many section filters tunerId's demux has at once; 0: no limit.
  virtual unsigned int getFilterLimit(int tunerId) const {
    (void)tunerId;
    return 0;
  }

  // Starts passing every section carried on pid of tunerId; false (logged
  // by the source) when the demux refuses.
  virtual bool openFilter(int tunerId, unsigned short pid) = 0;
  virtual void closeFilter(int tunerId, unsigned short pid) = 0;

  // Waits at most timeoutMs (-1: no bound) for the next section of an open
  // filter.
  virtual ReadResult readSection(int timeoutMs, Section* section) = 0;

  // Ends a readSection in progress, or the next one, with kNothing.
  virtual void interrupt() = 0;

  // The engine reads no more: called once by its shutdown, after its
  // delivery thread has ended; what waits for the engine may stop waiting.
  virtual void readingStopped() {}

  // Sections of pid that the source has carried lately, for synchronous
  // requests; the default knows none.
  virtual void findCarried(int tunerId, unsigned short pid,
                           std::vector<std::vector<unsigned char>>* sections) {
    (void)tunerId;
    (void)pid;
    (void)sections;
  }

  // Executes a command that is not a table request or the tuner list (keys,
  // video, application status); returns 0 to refuse, as the default does.
  virtual int executeControl(TCommand* command, TCommand** response) {
    (void)command;
    (void)response;
    return 0;
  }
};

}  // namespace Ostrel

#endif  // OSTREL_SECTION_SOURCE_H
