// ostrel-corpus: writes the robustness corpus, hard transport streams made by
// the project's own section builders, each with its truth: what a correct
// receiver reports of it (the transport stream id, the services, and for the
// PAT, the SDT and the NIT whether they came whole), played once and looped.
//
//   ostrel-corpus DIR      writes DIR/NN-name.ts for every case and DIR/truth.json
//
// Names carrying "BAD" are traps: a section that fails its CRC, a table of
// another kind on the same PID, a version that is not current. A receiver
// that reports one of them is wrong.
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "TDescriptorBuilder.h"
#include "TNITBuilder.h"
#include "TPATBuilder.h"
#include "TPMTBuilder.h"
#include "TSDTBuilder.h"
#include "TSectionWriter.h"
#include "TTOTBuilder.h"

using namespace Ostrel;

namespace {

typedef std::vector<unsigned char> Bytes;

const unsigned short kTsId = 0x0640;
const unsigned short kNetworkId = 0x0640;
const unsigned short kPcrPid = 0x01FF;
const unsigned short kNitPid = 0x0010;
const unsigned short kSdtPid = 0x0011;
const unsigned short kNullPid = 0x1FFF;
const unsigned short kTotPid = 0x0014;

struct Service {
  unsigned short id;
  unsigned short pmtPid;
  std::string name;
};

// n services, 0x0101 on; names carry tag (a version's mark, or "BAD").
std::vector<Service> services(int n, const std::string& tag = "", unsigned short first = 0x0101) {
  std::vector<Service> out;
  for (int i = 0; i < n; ++i) {
    char name[32];
    std::snprintf(name, sizeof(name), "Svc %04X%s", first + i, tag.c_str());
    out.push_back(
        {static_cast<unsigned short>(first + i), static_cast<unsigned short>(first + i), name});
  }
  return out;
}

// The MPEG-2 CRC_32 rewritten after a section's bytes were changed.
void recrc(Bytes* s) {
  uint32_t crc = 0xFFFFFFFF;
  for (size_t i = 0; i + 4 < s->size(); ++i) {
    crc ^= static_cast<uint32_t>((*s)[i]) << 24;
    for (int b = 0; b < 8; ++b) {
      crc = (crc & 0x80000000) ? (crc << 1) ^ 0x04C11DB7 : crc << 1;
    }
  }
  for (int k = 0; k < 4; ++k) {
    (*s)[s->size() - 4 + k] = static_cast<unsigned char>(crc >> (24 - 8 * k));
  }
}

Bytes damaged(Bytes s) {
  s.back() ^= 0x5A;
  return s;
}

// The PAT in n sections, service i in section i % n; section 0 also names the
// NIT's PID.
std::vector<Bytes> pat(const std::vector<Service>& svcs, int n, int version = 0,
                       unsigned short tsId = kTsId, bool current = true) {
  std::vector<Bytes> out;
  for (int k = 0; k < n; ++k) {
    TPATBuilder b;
    b.setTransportStreamId(tsId).setVersion(version).setCurrentNext(current).setSectionNumber(
        k, n - 1);
    if (k == 0)
      b.addProgram(0, kNitPid);
    for (size_t i = k; i < svcs.size(); i += n) {
      b.addProgram(svcs[i].id, svcs[i].pmtPid);
    }
    out.push_back(b.build());
  }
  return out;
}

std::vector<Bytes> sdt(const std::vector<Service>& svcs, int n, int version = 0, bool actual = true,
                       unsigned short tsId = kTsId) {
  std::vector<Bytes> out;
  for (int k = 0; k < n; ++k) {
    TSDTBuilder b;
    b.setTransportStreamId(tsId).setOriginalNetworkId(kNetworkId).setActual(actual);
    b.setVersion(version).setSectionNumber(k, n - 1);
    for (size_t i = k; i < svcs.size(); i += n) {
      b.addService(svcs[i].id, TDescriptorBuilder::service(0x01, "Corpus", svcs[i].name));
    }
    out.push_back(b.build());
  }
  return out;
}

// An SDT's sections under another table id (a BAT on the SDT's PID).
std::vector<Bytes> retagged(std::vector<Bytes> sections, unsigned char tableId) {
  for (Bytes& s : sections) {
    s[0] = tableId;
    recrc(&s);
  }
  return sections;
}

std::vector<Bytes> nit(int n, int version = 0) {
  std::vector<Bytes> out;
  for (int k = 0; k < n; ++k) {
    TNITBuilder b;
    b.setNetworkId(kNetworkId).setActual(true).setVersion(version).setSectionNumber(k, n - 1);
    if (k == 0)
      b.addDescriptor(TDescriptorBuilder::networkName("Corpus net"));
    b.addTransportStream(static_cast<unsigned short>(kTsId + k), kNetworkId);
    out.push_back(b.build());
  }
  return out;
}

Bytes pmt(const Service& s, int version = 0) {
  return TPMTBuilder()
      .setProgramNumber(s.id)
      .setPcrPid(kPcrPid)
      .setVersion(version)
      .addStream(0x1B, static_cast<unsigned short>(0x1000 + (s.id & 0x0FFF)))
      .build();
}

// Packets of 188 bytes, continuity counted per PID, with a PCR every
// kPcrEvery packets unless told not to. The faults are made on the packets
// afterwards; the packet size and junk between packets when written.
class Mux {
 public:
  bool withPcr = true;
  std::vector<Bytes> packets;

  // Sections one after another on pid. Packed: a section starts right where
  // the previous one ended, several in a packet; else each starts a packet
  // of its own, the rest of the last stuffed. Returns the first packet's index.
  size_t sections(unsigned short pid, const std::vector<Bytes>& secs, bool packed = false) {
    const size_t first = packets.size();
    if (!packed) {
      for (const Bytes& s : secs) {
        run(pid, {s});
      }
    } else {
      run(pid, secs);
    }
    return first;
  }
  void section(unsigned short pid, const Bytes& s) { run(pid, {s}); }
  void nulls(int n) {
    for (int i = 0; i < n; ++i) {
      add(packet(kNullPid, false, {}));
    }
  }
  // Every section of each table, one section of each in turn.
  void interleave(const std::vector<std::pair<unsigned short, std::vector<Bytes>>>& tables,
                  int gap = 0) {
    for (size_t i = 0;; ++i) {
      bool any = false;
      for (const auto& t : tables) {
        if (i < t.second.size()) {
          section(t.first, t.second[i]);
          nulls(gap);
          any = true;
        }
      }
      if (!any)
        return;
    }
  }
  // Moves every later packet of the PID of packet i (and i) on by jump in
  // its continuity count: one discontinuity at i.
  void jumpContinuity(size_t i, int jump) {
    const unsigned short pid = pidOf(packets[i]);
    for (size_t k = i; k < packets.size(); ++k) {
      if (pidOf(packets[k]) == pid) {
        packets[k][3] =
            static_cast<unsigned char>((packets[k][3] & 0xF0) | ((packets[k][3] + jump) & 0x0F));
      }
    }
  }
  static unsigned short pidOf(const Bytes& p) {
    return static_cast<unsigned short>(((p[1] & 0x1F) << 8) | p[2]);
  }
  // The packet indexes of pid from `from` on.
  std::vector<size_t> of(unsigned short pid, size_t from = 0) const {
    std::vector<size_t> out;
    for (size_t k = from; k < packets.size(); ++k) {
      if (pidOf(packets[k]) == pid)
        out.push_back(k);
    }
    return out;
  }

 private:
  static const int kPcrEvery = 16;
  std::map<unsigned short, unsigned char> m_mapCc;
  unsigned long long m_ullPcr = 0;
  int m_iSincePcr = 0;

  Bytes packet(unsigned short pid, bool pusi, const Bytes& payload) {
    Bytes p(188, 0xFF);
    p[0] = 0x47;
    p[1] = static_cast<unsigned char>((pusi ? 0x40 : 0) | (pid >> 8));
    p[2] = static_cast<unsigned char>(pid & 0xFF);
    p[3] = static_cast<unsigned char>(0x10 | (m_mapCc[pid]++ & 0x0F));
    for (size_t i = 0; i < payload.size() && i < 184; ++i) {
      p[4 + i] = payload[i];
    }
    return p;
  }
  void add(const Bytes& p) {
    packets.push_back(p);
    if (withPcr && ++m_iSincePcr >= kPcrEvery) {
      m_iSincePcr = 0;
      m_ullPcr += 27000000ull * 188 * 8 * kPcrEvery / 4000000;  // as at 4 Mbit/s
      Bytes a(188, 0xFF);
      const unsigned long long base = m_ullPcr / 300, ext = m_ullPcr % 300;
      a[0] = 0x47, a[1] = kPcrPid >> 8, a[2] = kPcrPid & 0xFF, a[3] = 0x20;
      a[4] = 183, a[5] = 0x10;
      a[6] = static_cast<unsigned char>(base >> 25), a[7] = static_cast<unsigned char>(base >> 17);
      a[8] = static_cast<unsigned char>(base >> 9), a[9] = static_cast<unsigned char>(base >> 1);
      a[10] = static_cast<unsigned char>(((base & 1) << 7) | 0x7E | (ext >> 8));
      a[11] = static_cast<unsigned char>(ext & 0xFF);
      packets.push_back(a);
    }
  }
  // Sections back to back in the payloads of pid: the pointer field where a
  // section starts, stuffing after the last.
  void run(unsigned short pid, const std::vector<Bytes>& secs) {
    Bytes all;
    std::vector<size_t> starts;
    for (const Bytes& s : secs) {
      starts.push_back(all.size());
      all.insert(all.end(), s.begin(), s.end());
    }
    size_t pos = 0, next = 0;
    while (pos < all.size()) {
      while (next < starts.size() && starts[next] < pos)
        ++next;
      const bool pusi = next < starts.size() && starts[next] < pos + 183;
      Bytes payload;
      if (pusi)
        payload.push_back(static_cast<unsigned char>(starts[next] - pos));
      size_t room = 184 - payload.size();
      if (!pusi && next < starts.size() && starts[next] == pos + 183)
        room = 183;  // that section starts in a packet of its own
      const size_t take = std::min(room, all.size() - pos);
      payload.insert(payload.end(), all.begin() + pos, all.begin() + pos + take);
      pos += take;
      add(packet(pid, pusi, payload));
    }
  }
};

// What a correct receiver reports. Table states: "complete", "missing", or
// "K of N" (once) / "incomplete" (looped).
struct Truth {
  std::map<std::string, std::string> once, loop;
  int tsId = kTsId;  // -1: no PAT
  struct Entry {
    unsigned short id;
    int pmtPid;                               // -1: not in the PAT
    std::vector<std::string> names;           // any of them; empty: not in the SDT
    bool pmt;                                 // its PMT comes, looped
    std::vector<std::string> loopNames = {};  // right too when looped
    bool loopOptional = false;                // looped, the PAT caught may be one without it
  };
  std::vector<Entry> services;
  // Marks of versions at the end of names: the names reported carry one.
  std::vector<std::string> versionTags;
};

struct Case {
  std::string name;
  std::string about;
  Mux mux;
  Truth truth;
  int packetSize = 188;
  std::map<size_t, Bytes> junkBefore;  // bytes written before packet N
};

void allTables(Truth* t, const std::string& state) {
  for (const char* table : {"PAT", "SDT", "NIT"}) {
    t->once[table] = state;
    t->loop[table] = state == "complete" || state == "missing" ? state : "incomplete";
  }
}

// Every service of svcs in the PAT and the SDT with its one name, its PMT
// carried.
void expect(Truth* t, const std::vector<Service>& svcs, bool inSdt = true, bool pmtCarried = true) {
  for (const Service& s : svcs) {
    t->services.push_back({s.id, s.pmtPid,
                           inSdt ? std::vector<std::string>{s.name} : std::vector<std::string>(),
                           pmtCarried});
  }
}

// Every table complete; every service of svcs as expect() has it.
void whole(Case* c, const std::vector<Service>& svcs) {
  allTables(&c->truth, "complete");
  expect(&c->truth, svcs);
}

// The SDT's section missing (of sections, services dealt round them) never
// came: "K of N" played once, incomplete looped; its services have no name.
void sdtSectionMissing(Case* c, const std::vector<Service>& svcs, size_t sections, size_t missing) {
  allTables(&c->truth, "complete");
  c->truth.once["SDT"] = std::to_string(sections - 1) + " of " + std::to_string(sections);
  c->truth.loop["SDT"] = "incomplete";
  for (size_t i = 0; i < svcs.size(); ++i) {
    c->truth.services.push_back({svcs[i].id, svcs[i].pmtPid,
                                 i % sections == missing ? std::vector<std::string>()
                                                         : std::vector<std::string>{svcs[i].name},
                                 true});
  }
}

void pmts(Mux* m, const std::vector<Service>& svcs) {
  for (const Service& s : svcs) {
    m->section(s.pmtPid, pmt(s));
  }
}

enum Layout { kBackToBack, kInterleaved, kFarApart };

// The PAT, SDT and NIT of listed laid out as told (far apart: gap packets
// between sections), then the PMTs of listed; every table complete.
void laidOut(Case* c, const std::vector<Service>& listed, const std::vector<Bytes>& sdtSections,
             int n, Layout layout, int gap) {
  const auto p = pat(listed, n), q = nit(n);
  if (layout == kBackToBack) {
    c->mux.sections(0, p), c->mux.sections(kSdtPid, sdtSections), c->mux.sections(kNitPid, q);
  } else {
    c->mux.interleave({{0, p}, {kSdtPid, sdtSections}, {kNitPid, q}},
                      layout == kFarApart ? gap : 0);
  }
  pmts(&c->mux, listed);
  whole(c, listed);
}

// PAT, SDT and NIT of n sections each, laid out as told, then the PMTs.
void sized(Case* c, int n, Layout layout) {
  const auto svcs = services(std::max(3, n));
  laidOut(c, svcs, sdt(svcs, n), n, layout, 60);
}

// The usual small stream: PAT, SDT, NIT of 2 sections, 4 services.
std::vector<Service> base(Case* c, bool withPmts = true) {
  const auto svcs = services(4);
  c->mux.sections(0, pat(svcs, 2));
  c->mux.sections(kSdtPid, sdt(svcs, 2));
  c->mux.sections(kNitPid, nit(2));
  if (withPmts)
    pmts(&c->mux, svcs);
  return svcs;
}

std::vector<Case> cases() {
  std::vector<Case> all;
  auto add = [&](const std::string& name, const std::string& about,
                 const std::function<void(Case*)>& make) {
    Case c;
    c.name = name, c.about = about;
    make(&c);
    // A TOT last, so that every request of a scan can end once a pass is played.
    c.mux.section(kTotPid, TTOTBuilder().setUtcSeconds(1772377200).build());
    all.push_back(std::move(c));
  };
  const char* layouts[] = {"back-to-back", "interleaved", "far-apart"};
  for (int layout = kBackToBack; layout <= kFarApart; ++layout) {
    for (int n : {1, 2, 31, 32, 33, 64}) {
      add("sections-" + std::to_string(n) + "-" + layouts[layout],
          "PAT, SDT and NIT of " + std::to_string(n) + " sections each, " + layouts[layout],
          [=](Case* c) { sized(c, n, static_cast<Layout>(layout)); });
    }
    add(std::string("sdt-256-") + layouts[layout],
        std::string("an SDT of 256 sections (0..255), one service each, ") + layouts[layout],
        [=](Case* c) {
          const auto svcs = services(256), listed = services(8);
          laidOut(c, listed, sdt(svcs, 256), 1, static_cast<Layout>(layout), 40);
          for (size_t i = listed.size(); i < svcs.size(); ++i) {
            c->truth.services.push_back({svcs[i].id, -1, {svcs[i].name}, false});
          }
        });
  }
  add("version-change-mid-gather", "SDT version 0 sections 0 and 1 of 4, then version 1 whole",
      [](Case* c) {
        const auto v0 = services(8, " v0 BAD"), v1 = services(8, " v1");
        c->mux.sections(0, pat(v1, 2));
        const auto old = sdt(v0, 4, 0);
        c->mux.sections(kSdtPid, {old[0], old[1]});
        c->mux.sections(kSdtPid, sdt(v1, 4, 1));
        c->mux.sections(kNitPid, nit(2));
        pmts(&c->mux, v1);
        whole(c, v1);
      });
  add("version-change-new-incomplete",
      "SDT version 0 sections 0 and 1 of 4, then version 1 sections 0..2 of 4: never a mixture",
      [](Case* c) {
        // Looped, the stream's end returns to version 0: that one may be the
        // one reported, alone.
        const auto v0 = services(8, " v0"), v1 = services(8, " v1");
        c->mux.sections(0, pat(v1, 2));
        const auto old = sdt(v0, 4, 0), now = sdt(v1, 4, 1);
        c->mux.sections(kSdtPid, {old[0], old[1], now[0], now[1], now[2]});
        c->truth.versionTags = {" v0", " v1"};
        c->mux.sections(kNitPid, nit(2));
        pmts(&c->mux, v1);
        sdtSectionMissing(c, v1, 4, 3);
        for (size_t i = 0; i < v1.size(); ++i) {
          if (i % 4 < 2)
            c->truth.services[i].loopNames.push_back(v0[i].name);
        }
      });
  add("pat-version-change-mid-gather",
      "PAT version 3 section 0 of 2 (BAD services), then version 4", [](Case* c) {
        const auto old = services(4, " BAD", 0x0901), now = services(4);
        c->mux.section(0, pat(old, 2, 3)[0]);
        c->mux.sections(0, pat(now, 2, 4));
        c->mux.sections(kSdtPid, sdt(now, 1)), c->mux.sections(kNitPid, nit(1));
        pmts(&c->mux, now);
        whole(c, now);
      });
  add("changes-without-new-version",
      "SDT section 1 carried again with other names under the same version", [](Case* c) {
        const auto svcs = base(c), other = services(4, " changed");
        c->mux.section(kSdtPid, sdt(other, 2)[1]);
        whole(c, svcs);
        for (size_t i = 1; i < 4; i += 2) {
          c->truth.services[i].names.push_back(other[i].name);
        }
      });
  add("service-leaves-and-returns",
      "a service leaves the PAT (version 1) and returns (version 2) with the same PMT version",
      [](Case* c) {
        const auto svcs = services(3), two = services(2);
        c->mux.sections(0, pat(svcs, 1, 0));
        c->mux.sections(kSdtPid, sdt(svcs, 1)), c->mux.sections(kNitPid, nit(1));
        pmts(&c->mux, svcs);
        c->mux.sections(0, pat(two, 1, 1));
        pmts(&c->mux, two);
        c->mux.sections(0, pat(svcs, 1, 2));
        pmts(&c->mux, svcs);
        whole(c, svcs);
        c->truth.services[2].loopOptional = true;
      });
  add("bat-and-sdt-other", "a BAT (0x4A) and an SDT other (0x46) beside the SDT actual on 0x11",
      [](Case* c) {
        const auto svcs = services(6), bad = services(6, " BAD");
        c->mux.sections(0, pat(svcs, 1)), c->mux.sections(kNitPid, nit(1));
        c->mux.interleave({{kSdtPid, retagged(sdt(bad, 3), 0x4A)},
                           {kSdtPid, sdt(bad, 3, 0, false)},
                           {kSdtPid, sdt(svcs, 3)}});
        pmts(&c->mux, svcs);
        whole(c, svcs);
      });
  add("crc-one-copy-bad", "SDT section 1 fails its CRC once; a good copy follows", [](Case* c) {
    const auto svcs = services(6), bad = services(6, " BAD");
    c->mux.sections(0, pat(svcs, 1)), c->mux.sections(kNitPid, nit(1));
    const auto s = sdt(svcs, 3);
    c->mux.sections(kSdtPid, {s[0], damaged(sdt(bad, 3)[1]), s[2], s[1]});
    pmts(&c->mux, svcs);
    whole(c, svcs);
  });
  add("crc-every-copy-bad", "SDT section 1 fails its CRC in every copy", [](Case* c) {
    const auto svcs = services(6), bad = services(6, " BAD");
    c->mux.sections(0, pat(svcs, 1)), c->mux.sections(kNitPid, nit(1));
    const auto s = sdt(svcs, 3);
    const Bytes b = damaged(sdt(bad, 3)[1]);
    c->mux.sections(kSdtPid, {s[0], b, s[2], b});
    pmts(&c->mux, svcs);
    allTables(&c->truth, "complete");
    c->truth.once["SDT"] = "2 of 3", c->truth.loop["SDT"] = "incomplete";
    for (size_t i = 0; i < svcs.size(); ++i) {
      c->truth.services.push_back(
          {svcs[i].id, svcs[i].pmtPid,
           i % 3 == 1 ? std::vector<std::string>() : std::vector<std::string>{svcs[i].name}, true});
    }
  });
  add("crc-burst-of-eleven", "eleven sections in a row fail their CRC on 0x11, then good copies",
      [](Case* c) {
        const auto svcs = services(6), bad = services(6, " BAD");
        c->mux.sections(0, pat(svcs, 1)), c->mux.sections(kNitPid, nit(1));
        const auto b = sdt(bad, 3);
        for (int i = 0; i < 11; ++i) {
          c->mux.section(kSdtPid, damaged(b[i % 3]));
        }
        c->mux.sections(kSdtPid, sdt(svcs, 3));
        pmts(&c->mux, svcs);
        whole(c, svcs);
      });
  add("crc-pat-bad-once", "PAT section 0 fails its CRC once (BAD services)", [](Case* c) {
    const auto svcs = services(4), bad = services(4, " BAD", 0x0901);
    c->mux.section(0, damaged(pat(bad, 2)[0]));
    base(c);
    whole(c, svcs);
  });
  add("continuity-error", "a continuity jump inside an SDT section; the table carried twice",
      [](Case* c) {
        const auto svcs = services(4);
        c->mux.sections(0, pat(svcs, 1)), c->mux.sections(kNitPid, nit(1));
        const auto big = services(24);
        const auto s = sdt(big, 1);
        const size_t at = c->mux.sections(kSdtPid, s);
        c->mux.jumpContinuity(c->mux.of(kSdtPid, at)[2], 3);
        c->mux.sections(kSdtPid, s);
        pmts(&c->mux, svcs);
        whole(c, svcs);
        for (size_t i = 4; i < big.size(); ++i) {
          c->truth.services.push_back({big[i].id, -1, {big[i].name}, false});
        }
      });
  add("duplicate-packets", "every packet of the SDT sent twice (same continuity count)",
      [](Case* c) {
        const auto svcs = services(24);
        c->mux.sections(0, pat(svcs, 1)), c->mux.sections(kNitPid, nit(1));
        const size_t at = c->mux.sections(kSdtPid, sdt(svcs, 2));
        std::vector<Bytes> out;
        for (size_t k = 0; k < c->mux.packets.size(); ++k) {
          out.push_back(c->mux.packets[k]);
          if (k >= at && Mux::pidOf(c->mux.packets[k]) == kSdtPid)
            out.push_back(c->mux.packets[k]);
        }
        c->mux.packets = out;
        pmts(&c->mux, svcs);
        whole(c, svcs);
      });
  add("packet-lost-mid-section", "the middle packet of SDT section 1 (of 3) lost; carried once",
      [](Case* c) {
        const auto svcs = services(60);
        c->mux.sections(0, pat(svcs, 1)), c->mux.sections(kNitPid, nit(1));
        const auto s = sdt(svcs, 3);
        c->mux.section(kSdtPid, s[0]);
        const size_t at = c->mux.packets.size();
        c->mux.section(kSdtPid, s[1]);
        c->mux.packets.erase(c->mux.packets.begin() + c->mux.of(kSdtPid, at)[1]);
        c->mux.section(kSdtPid, s[2]);
        pmts(&c->mux, svcs);
        sdtSectionMissing(c, svcs, 3, 1);
      });
  add("packet-lost-then-repeated", "a packet of SDT section 1 lost in the first copy only",
      [](Case* c) {
        const auto svcs = services(30);
        c->mux.sections(0, pat(svcs, 1)), c->mux.sections(kNitPid, nit(1));
        const auto s = sdt(svcs, 3);
        const size_t at = c->mux.sections(kSdtPid, s);
        c->mux.packets.erase(c->mux.packets.begin() + c->mux.of(kSdtPid, at)[3]);
        c->mux.sections(kSdtPid, s);
        pmts(&c->mux, svcs);
        whole(c, svcs);
      });
  add("packed-sections",
      "sections packed back to back: one ends in a packet, the next starts there", [](Case* c) {
        const auto svcs = services(12);
        c->mux.sections(0, pat(svcs, 3), true);
        c->mux.sections(kSdtPid, sdt(svcs, 5), true);
        c->mux.sections(kNitPid, nit(4), true);
        pmts(&c->mux, svcs);
        whole(c, svcs);
      });
  add("several-sections-in-one-packet", "a PAT of 8 tiny sections, all in one packet", [](Case* c) {
    const auto svcs = services(8);
    c->mux.sections(0, pat(svcs, 8), true);
    c->mux.sections(kSdtPid, sdt(svcs, 4), true);
    c->mux.sections(kNitPid, nit(3), true);
    pmts(&c->mux, svcs);
    whole(c, svcs);
  });
  add("stuffing-after-section", "every section followed by stuffing up to its packet's end",
      [](Case* c) {
        const auto svcs = base(c);
        whole(c, svcs);
      });
  add("pmt-before-pat", "one PMT carried once, before the PAT", [](Case* c) {
    const auto svcs = services(3);
    c->mux.section(svcs[0].pmtPid, pmt(svcs[0]));
    c->mux.sections(0, pat(svcs, 1));
    c->mux.sections(kSdtPid, sdt(svcs, 1)), c->mux.sections(kNitPid, nit(1));
    pmts(&c->mux, {svcs[1], svcs[2]});
    whole(c, svcs);
  });
  add("pmt-pid-never-carried", "the PAT names a PMT PID that is never carried", [](Case* c) {
    auto svcs = services(3);
    svcs[2].pmtPid = 0x0777;
    c->mux.sections(0, pat(svcs, 1));
    c->mux.sections(kSdtPid, sdt(svcs, 1)), c->mux.sections(kNitPid, nit(1));
    pmts(&c->mux, {svcs[0], svcs[1]});
    whole(c, svcs);
    c->truth.services[2].pmt = false;
  });
  add("pmt-on-null-pid", "the PAT names PID 0x1FFF for a PMT (a PMT written there)", [](Case* c) {
    auto svcs = services(3);
    svcs[2].pmtPid = kNullPid;
    c->mux.sections(0, pat(svcs, 1));
    c->mux.sections(kSdtPid, sdt(svcs, 1)), c->mux.sections(kNitPid, nit(1));
    pmts(&c->mux, svcs);
    whole(c, svcs);
    c->truth.services[2].pmt = false;
  });
  add("pat-next-version-first", "a PAT version 1 not yet current (BAD services) before version 0",
      [](Case* c) {
        c->mux.sections(0, pat(services(4, " BAD", 0x0901), 2, 1, kTsId, false));
        const auto svcs = base(c);
        whole(c, svcs);
      });
  add("packets-192", "192-byte packets (a 4-byte time code before each)", [](Case* c) {
    const auto svcs = base(c);
    c->packetSize = 192;
    whole(c, svcs);
  });
  add("packets-204", "204-byte packets (16 parity bytes after each)", [](Case* c) {
    const auto svcs = base(c);
    c->packetSize = 204;
    whole(c, svcs);
  });
  add("sync-lost", "sync lost for 1000 bytes in the first copy of the tables, then found",
      [](Case* c) {
        const auto svcs = base(c, false);
        Bytes junk(1000);
        for (size_t i = 0; i < junk.size(); ++i)
          junk[i] = static_cast<unsigned char>(i * 13 + 5);
        c->junkBefore[3] = junk;
        base(c);
        whole(c, svcs);
      });
  add("garbage-between-packets", "a few bytes of garbage (with 0x47) between some packets",
      [](Case* c) {
        const auto svcs = base(c, false);
        for (size_t k = 2; k < c->mux.packets.size(); k += 5)
          c->junkBefore[k] = Bytes{0x47, 0x00, 0x11, 0x47, 0x12};
        base(c);
        whole(c, svcs);
      });
  add("no-pcr", "no PCR anywhere", [](Case* c) {
    c->mux.withPcr = false;
    const auto svcs = base(c);
    whole(c, svcs);
  });
  add("ts-id-changes", "PAT of ts 0x0641 section 0 (BAD), then ts 0x0640 whole", [](Case* c) {
    const auto bad = services(4, " BAD", 0x0901);
    c->mux.section(0, pat(bad, 2, 0, 0x0641)[0]);
    const auto svcs = base(c);
    whole(c, svcs);
  });
  add("no-pat", "an SDT and a NIT, no PAT", [](Case* c) {
    const auto svcs = services(3);
    c->mux.sections(kSdtPid, sdt(svcs, 1)), c->mux.sections(kNitPid, nit(1));
    allTables(&c->truth, "complete");
    c->truth.once["PAT"] = c->truth.loop["PAT"] = "missing";
    c->truth.tsId = -1;
    expect(&c->truth, svcs);
    for (auto& e : c->truth.services)
      e.pmtPid = -1, e.pmt = false;
  });
  add("no-sdt-no-nit", "a PAT and PMTs only", [](Case* c) {
    const auto svcs = services(3);
    c->mux.sections(0, pat(svcs, 1));
    pmts(&c->mux, svcs);
    allTables(&c->truth, "missing");
    c->truth.once["PAT"] = c->truth.loop["PAT"] = "complete";
    expect(&c->truth, svcs, false);
  });
  add("pat-section-missing", "PAT section 2 of 0..3 never carried", [](Case* c) {
    const auto svcs = services(8);
    const auto p = pat(svcs, 4);
    c->mux.sections(0, {p[0], p[1], p[3]});
    c->mux.sections(kSdtPid, sdt(svcs, 1)), c->mux.sections(kNitPid, nit(1));
    pmts(&c->mux, svcs);
    allTables(&c->truth, "complete");
    c->truth.once["PAT"] = "3 of 4", c->truth.loop["PAT"] = "incomplete";
    for (size_t i = 0; i < svcs.size(); ++i) {
      c->truth.services.push_back(
          {svcs[i].id, i % 4 == 2 ? -1 : svcs[i].pmtPid, {svcs[i].name}, i % 4 != 2});
    }
  });
  return all;
}

// The packets as bytes of the case's packet size, junk where told.
Bytes serialize(const Case& c) {
  Bytes out;
  for (size_t k = 0; k < c.mux.packets.size(); ++k) {
    auto junk = c.junkBefore.find(k);
    if (junk != c.junkBefore.end())
      out.insert(out.end(), junk->second.begin(), junk->second.end());
    if (c.packetSize == 192) {
      const unsigned int stamp = static_cast<unsigned int>(k * 1000);
      for (int b = 3; b >= 0; --b)
        out.push_back(static_cast<unsigned char>(stamp >> (8 * b)));
    }
    out.insert(out.end(), c.mux.packets[k].begin(), c.mux.packets[k].end());
    if (c.packetSize == 204)
      out.insert(out.end(), 16, 0x00);
  }
  return out;
}

std::string quoted(const std::string& s) {
  std::string out = "\"";
  for (char ch : s) {
    if (ch == '"' || ch == '\\')
      out += '\\';
    out += ch;
  }
  return out + "\"";
}

std::string states(const std::map<std::string, std::string>& m) {
  std::string out = "{";
  for (const auto& e : m) {
    out += (out.size() > 1 ? ", " : "") + quoted(e.first) + ": " + quoted(e.second);
  }
  return out + "}";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: ostrel-corpus DIR\n");
    return 2;
  }
  const std::string dir = argv[1];
  std::string json = "[";
  int index = 0;
  for (const Case& c : cases()) {
    char file[128];
    std::snprintf(file, sizeof(file), "%02d-%s.ts", ++index, c.name.c_str());
    const Bytes bytes = serialize(c);
    FILE* f = std::fopen((dir + "/" + file).c_str(), "wb");
    if (!f || std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size() || std::fclose(f)) {
      std::fprintf(stderr, "ostrel-corpus: cannot write %s/%s\n", dir.c_str(), file);
      return 1;
    }
    json += std::string(index > 1 ? "," : "") + "\n  {\"file\": " + quoted(file) +
            ", \"name\": " + quoted(c.name) + ", \"about\": " + quoted(c.about) +
            ", \"packetSize\": " + std::to_string(c.packetSize) +
            ",\n   \"once\": " + states(c.truth.once) + ", \"loop\": " + states(c.truth.loop) +
            ",\n   \"tsId\": " + (c.truth.tsId < 0 ? "null" : std::to_string(c.truth.tsId)) +
            ", \"services\": [";
    for (size_t i = 0; i < c.truth.services.size(); ++i) {
      const Truth::Entry& e = c.truth.services[i];
      json += std::string(i ? "," : "") + "\n    {\"id\": " + std::to_string(e.id) +
              ", \"pmtPid\": " + (e.pmtPid < 0 ? "null" : std::to_string(e.pmtPid)) +
              ", \"pmt\": " + (e.pmt ? "true" : "false") + ", \"names\": [";
      for (size_t k = 0; k < e.names.size(); ++k)
        json += (k ? ", " : "") + quoted(e.names[k]);
      json += std::string("], \"loopOptional\": ") + (e.loopOptional ? "true" : "false") +
              ", \"loopNames\": [";
      for (size_t k = 0; k < e.loopNames.size(); ++k)
        json += (k ? ", " : "") + quoted(e.loopNames[k]);
      json += "]}";
    }
    json += "],\n   \"versionTags\": [";
    for (size_t k = 0; k < c.truth.versionTags.size(); ++k)
      json += (k ? ", " : "") + quoted(c.truth.versionTags[k]);
    json += "]}";
  }
  json += "\n]\n";
  FILE* f = std::fopen((dir + "/truth.json").c_str(), "w");
  if (!f || std::fputs(json.c_str(), f) < 0 || std::fclose(f)) {
    std::fprintf(stderr, "ostrel-corpus: cannot write %s/truth.json\n", dir.c_str());
    return 1;
  }
  std::printf("%d streams and truth.json in %s\n", index, dir.c_str());
  return 0;
}
