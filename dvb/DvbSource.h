#ifndef OSTREL_DVB_SOURCE_H
#define OSTREL_DVB_SOURCE_H

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SectionSource.h"

namespace Ostrel {

class DvbDemuxFilter;

// Sections from Linux DVB adapters that something else has tuned (dvbv5-zap,
// say): one tuner per adapter directory given (ADAPTER/frontend0 and
// ADAPTER/demux0), ids 0, 1, ... in that order. Only the device paths given
// are opened.
//
// Each filter the engine opens is a descriptor of its own on the adapter's
// demux (DvbDemuxFilter: the PID, every section passing, CRC left to the
// engine). readSection polls every open filter and an eventfd that interrupt
// writes, and reads one section from a ready filter, taking the ready filters
// in turn so that a busy PID does not starve the others. The filters a poll
// found ready are read on, one section per call and in turn, until each has
// nothing left or 32 reads each are spent, before the next poll: one poll
// serves many sections (a poll costs as much as a read), and a filter not
// ready at the poll waits at most that long while the others stay busy.
// After an interrupt the next call returns kNothing at once. A filter whose read
// fails, or that poll reports in error or hung up, is reported once as
// kFilterFailed (logged) and left out of the poll until it is closed. The
// tuner list reads each adapter's frontend (DvbFrontend). Keys, application
// status and video need devices a DVB adapter does not have: refused, logged.
//
// Threads as SectionSource says: the filters are touched by the engine's
// delivery thread only, interrupt writes only the eventfd, and getTuners
// reads only the adapter paths, so no lock is needed.
class DvbSource : public SectionSource {
 public:
  struct Options {
    Options() : bufferSize(64 * 1024), filterLimit(32) {}
    unsigned int bufferSize;   // DMX_SET_BUFFER_SIZE of each filter; 0 leaves the kernel's
    unsigned int filterLimit;  // filters at once per demux (a receiver's has 32 or fewer)
  };

  // adapters: directories such as /dev/dvb/adapter0, one tuner each.
  DvbSource(const std::vector<std::string>& adapters, const Options& options);
  // Closes every filter still open, and the eventfd.
  virtual ~DvbSource();

  const std::string& getAdapter(int tunerId) const { return m_vecAdapters[tunerId]; }

  virtual int getTunerCount() const { return static_cast<int>(m_vecAdapters.size()); }
  virtual bool getTuners(std::vector<Tuner>* tuners);
  virtual unsigned int getFilterLimit(int tunerId) const;
  virtual bool openFilter(int tunerId, unsigned short pid);
  virtual void closeFilter(int tunerId, unsigned short pid);
  virtual ReadResult readSection(int timeoutMs, Section* section);
  virtual void interrupt();
  virtual int executeControl(TCommand* command, TCommand** response);

 private:
  typedef std::pair<int, unsigned short> FilterKey;
  struct Filter {
    std::unique_ptr<DvbDemuxFilter> device;
    bool failed;  // reported once; no longer polled
  };

  DvbSource(const DvbSource&);
  DvbSource& operator=(const DvbSource&);

  const std::vector<std::string> m_vecAdapters;
  const Options m_options;
  int m_iWakeFd;  // eventfd written by interrupt; -1 when it could not be made
  // REQUIRES: the delivery thread. Reads one section from the filters the
  // last poll found ready; false when none has one left.
  bool readReady(ReadResult* result, Section* section);

  std::map<FilterKey, Filter> m_mapFilters;
  FilterKey m_lastRead;                // the filter read last: the next read starts after it
  std::deque<FilterKey> m_dequeReady;  // found ready by the last poll, not yet drained
  unsigned int m_uiReadBudget;         // reads of m_dequeReady left before the next poll
  std::atomic<bool> m_bInterrupted;    // interrupt was called: the next call polls
};

}  // namespace Ostrel

#endif  // OSTREL_DVB_SOURCE_H
