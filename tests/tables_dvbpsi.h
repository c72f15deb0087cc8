#ifndef OSTREL_TESTS_TABLES_DVBPSI_H
#define OSTREL_TESTS_TABLES_DVBPSI_H

// libdvbpsi as an independent decoder of the same sections, for the
// differential test and the benchmark. libdvbpsi has no public call that
// decodes a section held in a buffer, so sections are cut into transport
// stream packets and pushed through a decoder handle. Each table is turned
// into a canonical text, the same text that describe() makes of ours.
//
// libdvbpsi's headers need <cstdint> first; this header includes them once.

#include <cstdint>
#include <string>
#include <vector>

// libdvbpsi's headers depend on their order.
// clang-format off
extern "C" {
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/dr_40.h>
#include <dvbpsi/dr_41.h>
#include <dvbpsi/dr_48.h>
#include <dvbpsi/dr_52.h>
#include <dvbpsi/dr_58.h>
#include <dvbpsi/demux.h>
#include <dvbpsi/nit.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/sdt.h>
#include <dvbpsi/tot.h>
}
// clang-format on

#include "TNITTable.h"
#include "TPATTable.h"
#include "TPMTTable.h"
#include "TSDTTable.h"
#include "TTOTTable.h"
#include "TsPacketWriter.h"

namespace OstrelDvbpsi {

const unsigned int kPacketSize = 188;

// Packets that carry one section from a packet start (pointer_field 0, the
// toolkit's writer), stuffed with 0xFF; continuity counters from *counter on.
inline std::vector<unsigned char> packetize(const std::vector<unsigned char>& section,
                                            unsigned short pid, unsigned int* counter) {
  std::vector<unsigned char> out;
  Ostrel::TsPacketWriter(&out).writeSection(pid, section);
  for (size_t at = 0; at < out.size(); at += kPacketSize)
    out[at + 3] = static_cast<unsigned char>(0x10 | ((*counter)++ & 0x0F));
  return out;
}

inline std::string hex(const unsigned char* d, size_t n) {
  std::string s;
  for (size_t i = 0; i < n; ++i)
    s += {"0123456789abcdef"[d[i] >> 4], "0123456789abcdef"[d[i] & 0x0F]};
  return s;
}

inline std::string num(const char* key, unsigned long long v) {
  return std::string(key) + "=" + std::to_string(v) + " ";
}

inline std::string describe(const dvbpsi_descriptor_t* d) {
  std::string s = "[";
  for (; d; d = d->p_next)
    s += num("tag", d->i_tag) + hex(d->p_data, d->i_length) + " ";
  return s + "] ";
}

inline std::string describe(const Ostrel::TDescriptorList& list) {
  std::string s = "[";
  for (unsigned int i = 0; i < list.size(); ++i) {
    const Ostrel::TDescriptor* d = list.at(i);
    s += num("tag", d->getTag()) + hex(d->getData(), d->getLength()) + " ";
  }
  return s + "] ";
}

// Canonical texts of our tables.
inline std::string describe(const Ostrel::TPATTable& t) {
  std::string s = num("tsid", t.getTransportStreamId()) + num("v", t.getVersionNumber()) +
                  num("cn", t.isCurrentNext());
  for (unsigned int i = 0; i < t.getProgramCount(); ++i)
    s += num("prog", t.getProgram(i).programNumber) + num("pid", t.getProgram(i).pid);
  return s;
}

inline std::string describe(const Ostrel::TPMTTable& t) {
  std::string s = num("prog", t.getProgramNumber()) + num("v", t.getVersionNumber()) +
                  num("cn", t.isCurrentNext()) + num("pcr", t.getPcrPid()) +
                  describe(t.getDescriptors());
  for (unsigned int i = 0; i < t.getStreamCount(); ++i) {
    const Ostrel::TPMTTable::Stream& es = t.getStream(i);
    s += num("type", es.getStreamType()) + num("pid", es.getPid()) + describe(es.getDescriptors());
  }
  return s;
}

inline std::string describe(const Ostrel::TNITTable& t) {
  std::string s = num("tid", t.getTableId()) + num("nid", t.getNetworkId()) +
                  num("v", t.getVersionNumber()) + num("cn", t.isCurrentNext()) +
                  describe(t.getDescriptors());
  for (unsigned int i = 0; i < t.getTransportStreamCount(); ++i) {
    const Ostrel::TNITTable::TransportStream& ts = t.getTransportStream(i);
    s += num("tsid", ts.getTransportStreamId()) + num("onid", ts.getOriginalNetworkId()) +
         describe(ts.getDescriptors());
  }
  return s;
}

inline std::string describe(const Ostrel::TSDTTable& t) {
  std::string s = num("tid", t.getTableId()) + num("tsid", t.getTransportStreamId()) +
                  num("v", t.getVersionNumber()) + num("cn", t.isCurrentNext()) +
                  num("onid", t.getOriginalNetworkId());
  for (unsigned int i = 0; i < t.getServiceCount(); ++i) {
    const Ostrel::TSDTTable::Service& sv = t.getService(i);
    s += num("sid", sv.getServiceId()) + num("sched", sv.isEitSchedule()) +
         num("pf", sv.isEitPresentFollowing()) + num("rs", sv.getRunningStatus()) +
         num("ca", sv.isFreeCaMode()) + describe(sv.getDescriptors());
  }
  return s;
}

inline std::string describe(const Ostrel::TTOTTable& t) {
  unsigned long long utc = (static_cast<unsigned long long>(t.getMjd()) << 24) | t.getBcdTime();
  return num("tid", t.getTableId()) + num("utc", utc) + describe(t.getDescriptors());
}

// Canonical texts of libdvbpsi's tables.
inline std::string describe(const dvbpsi_pat_t* t) {
  std::string s = num("tsid", t->i_ts_id) + num("v", t->i_version) + num("cn", t->b_current_next);
  for (const dvbpsi_pat_program_t* p = t->p_first_program; p; p = p->p_next)
    s += num("prog", p->i_number) + num("pid", p->i_pid);
  return s;
}

inline std::string describe(const dvbpsi_pmt_t* t) {
  std::string s = num("prog", t->i_program_number) + num("v", t->i_version) +
                  num("cn", t->b_current_next) + num("pcr", t->i_pcr_pid) +
                  describe(t->p_first_descriptor);
  for (const dvbpsi_pmt_es_t* es = t->p_first_es; es; es = es->p_next)
    s += num("type", es->i_type) + num("pid", es->i_pid) + describe(es->p_first_descriptor);
  return s;
}

inline std::string describe(const dvbpsi_nit_t* t) {
  std::string s = num("tid", t->i_table_id) + num("nid", t->i_network_id) + num("v", t->i_version) +
                  num("cn", t->b_current_next) + describe(t->p_first_descriptor);
  for (const dvbpsi_nit_ts_t* ts = t->p_first_ts; ts; ts = ts->p_next) {
    s += num("tsid", ts->i_ts_id) + num("onid", ts->i_orig_network_id) +
         describe(ts->p_first_descriptor);
  }
  return s;
}

inline std::string describe(const dvbpsi_sdt_t* t) {
  std::string s = num("tid", t->i_table_id) + num("tsid", t->i_extension) + num("v", t->i_version) +
                  num("cn", t->b_current_next) + num("onid", t->i_network_id);
  for (const dvbpsi_sdt_service_t* sv = t->p_first_service; sv; sv = sv->p_next) {
    s += num("sid", sv->i_service_id) + num("sched", sv->b_eit_schedule) +
         num("pf", sv->b_eit_present) + num("rs", sv->i_running_status) + num("ca", sv->b_free_ca) +
         describe(sv->p_first_descriptor);
  }
  return s;
}

inline std::string describe(const dvbpsi_tot_t* t) {
  return num("tid", t->i_table_id) + num("utc", t->i_utc_time) + describe(t->p_first_descriptor);
}

// One libdvbpsi handle decoding the sections of one PID. Each decoded table
// becomes its canonical text in `last` (or is only counted, when describing
// is off, for the benchmark) and is deleted at once.
class Decoder {
 public:
  enum Table { kPat, kPmt, kSi };

  Decoder(Table table, unsigned short programNumber, bool describeTables)
      : m_pHandle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE)), m_bDescribe(describeTables), m_iTables(0) {
    if (table == kPat) {
      dvbpsi_pat_attach(m_pHandle, &Decoder::on<dvbpsi_pat_t, dvbpsi_pat_delete>, this);
      m_pDetach = &dvbpsi_pat_detach;
    } else if (table == kPmt) {
      dvbpsi_pmt_attach(m_pHandle, programNumber, &Decoder::on<dvbpsi_pmt_t, dvbpsi_pmt_delete>,
                        this);
      m_pDetach = &dvbpsi_pmt_detach;
    } else {
      dvbpsi_AttachDemux(m_pHandle, &Decoder::onNewSubtable, this);
      m_pDetach = &dvbpsi_DetachDemux;
    }
  }
  ~Decoder() {
    m_pDetach(m_pHandle);
    dvbpsi_delete(m_pHandle);
  }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Pushes whole packets (a multiple of 188 bytes).
  void push(std::vector<unsigned char>& packets) {
    for (size_t at = 0; at + kPacketSize <= packets.size(); at += kPacketSize)
      dvbpsi_packet_push(m_pHandle, &packets[at]);
  }

  int tables() const { return m_iTables; }
  const std::string& last() const { return m_strLast; }

 private:
  template <class T>
  void done(T* table, void (*destroy)(T*)) {
    ++m_iTables;
    if (m_bDescribe)
      m_strLast = describe(table);
    destroy(table);
  }
  template <class T, void (*destroy)(T*)>
  static void on(void* self, T* t) {
    static_cast<Decoder*>(self)->done(t, destroy);
  }
  static void onNewSubtable(dvbpsi_t* handle, uint8_t tableId, uint16_t extension, void* self) {
    if (tableId == 0x40 || tableId == 0x41) {
      dvbpsi_nit_attach(handle, tableId, extension, &Decoder::on<dvbpsi_nit_t, dvbpsi_nit_delete>,
                        self);
    } else if (tableId == 0x42 || tableId == 0x46) {
      dvbpsi_sdt_attach(handle, tableId, extension, &Decoder::on<dvbpsi_sdt_t, dvbpsi_sdt_delete>,
                        self);
    } else if (tableId == 0x70 || tableId == 0x73) {
      dvbpsi_tot_attach(handle, tableId, extension, &Decoder::on<dvbpsi_tot_t, dvbpsi_tot_delete>,
                        self);
    }
  }

  dvbpsi_t* m_pHandle;
  void (*m_pDetach)(dvbpsi_t*);
  bool m_bDescribe;
  int m_iTables;
  std::string m_strLast;
};

}  // namespace OstrelDvbpsi

#endif  // OSTREL_TESTS_TABLES_DVBPSI_H
