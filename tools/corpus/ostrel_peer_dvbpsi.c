/* ostrel-peer-dvbpsi: libdvbpsi's reading of a transport stream file, as JSON
 * in the shape the corpus check compares: each of PAT, SDT (actual) and NIT
 * (actual) "complete" or "missing" (libdvbpsi hands on whole tables only),
 * the transport stream id, and the services (PAT and SDT) with their PMT's
 * outcome.
 *
 *   ostrel-peer-dvbpsi [--passes N] FILE
 *
 * Packets of 188, 192 or 204 bytes; sync is searched for where it is lost.
 * --passes plays the file N times (a looping receiver); default once. */
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* libdvbpsi's headers depend on their order. */
/* clang-format off */
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/demux.h>
#include <dvbpsi/dr_48.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/sdt.h>
#include <dvbpsi/nit.h>
/* clang-format on */

#define MAX_SERVICES 512

typedef struct {
  unsigned id;
  int pmtPid; /* -1: not in the PAT */
  bool pmt;
  char name[256];
  char provider[256];
} Service;

static Service s_services[MAX_SERVICES];
static int s_serviceCount;
static bool s_pat, s_sdt, s_nit;
static unsigned s_tsId;
static dvbpsi_t* s_handles[8192];

static Service* service(unsigned id) {
  for (int i = 0; i < s_serviceCount; ++i)
    if (s_services[i].id == id)
      return &s_services[i];
  if (s_serviceCount == MAX_SERVICES)
    return NULL;
  Service* s = &s_services[s_serviceCount++];
  memset(s, 0, sizeof(*s));
  s->id = id, s->pmtPid = -1;
  return s;
}

static void quiet(dvbpsi_t* handle, const dvbpsi_msg_level_t level, const char* msg) {
  (void)handle, (void)level, (void)msg;
}

static void onPmt(void* data, dvbpsi_pmt_t* pmt) {
  Service* s = service(pmt->i_program_number);
  (void)data;
  if (s)
    s->pmt = true;
  dvbpsi_pmt_delete(pmt);
}

static void onPat(void* data, dvbpsi_pat_t* pat) {
  (void)data;
  s_pat = true, s_tsId = pat->i_ts_id;
  for (int i = 0; i < s_serviceCount; ++i)
    s_services[i].pmtPid = -1;
  for (dvbpsi_pat_program_t* p = pat->p_first_program; p; p = p->p_next) {
    if (p->i_number == 0)
      continue;
    Service* s = service(p->i_number);
    if (!s)
      continue;
    s->pmtPid = p->i_pid;
    if (!s_handles[p->i_pid]) {
      s_handles[p->i_pid] = dvbpsi_new(quiet, DVBPSI_MSG_NONE);
      dvbpsi_pmt_attach(s_handles[p->i_pid], p->i_number, onPmt, NULL);
    }
  }
  dvbpsi_pat_delete(pat);
}

static void text(char* out, const uint8_t* in, unsigned len) {
  /* Bytes as they are, control characters and quotes left out. */
  unsigned k = 0;
  for (unsigned i = 0; i < len && k < 255; ++i)
    if (in[i] >= 0x20 && in[i] != '"' && in[i] != '\\')
      out[k++] = (char)in[i];
  out[k] = 0;
}

static void onSdt(void* data, dvbpsi_sdt_t* sdt) {
  (void)data;
  s_sdt = true;
  for (dvbpsi_sdt_service_t* p = sdt->p_first_service; p; p = p->p_next) {
    Service* s = service(p->i_service_id);
    for (dvbpsi_descriptor_t* d = p->p_first_descriptor; s && d; d = d->p_next) {
      if (d->i_tag != 0x48)
        continue;
      dvbpsi_service_dr_t* dr = dvbpsi_DecodeServiceDr(d);
      if (dr) {
        text(s->name, dr->i_service_name, dr->i_service_name_length);
        text(s->provider, dr->i_service_provider_name, dr->i_service_provider_name_length);
      }
    }
  }
  dvbpsi_sdt_delete(sdt);
}

static void onNit(void* data, dvbpsi_nit_t* nit) {
  (void)data;
  s_nit = true;
  dvbpsi_nit_delete(nit);
}

static void onNewTable(dvbpsi_t* handle, uint8_t tableId, uint16_t ext, void* data) {
  (void)data;
  if (tableId == 0x42)
    dvbpsi_sdt_attach(handle, tableId, ext, onSdt, NULL);
  else if (tableId == 0x40)
    dvbpsi_nit_attach(handle, tableId, ext, onNit, NULL);
}

/* The stride (188, 192, 204) and the first packet's offset at which sync
 * repeats five times from at (as many as the file still holds, when fewer),
 * or 0. */
static unsigned frame(const uint8_t* b, size_t size, size_t at, size_t* sync) {
  static const unsigned strides[] = {188, 192, 204};
  for (size_t i = at; i < size; ++i) {
    for (int k = 0; k < 3; ++k) {
      const unsigned st = strides[k];
      const size_t lead = st == 192 ? 4 : 0;
      const size_t room = size > i + lead ? (size - i - lead) / st : 0;
      const size_t runs = room < 5 ? room : 5;
      bool ok = runs > 0;
      for (size_t n = 0; ok && n < runs; ++n)
        ok = b[i + lead + n * st] == 0x47;
      if (ok) {
        *sync = i + lead;
        return st;
      }
    }
  }
  return 0;
}

int main(int argc, char** argv) {
  int passes = 1;
  const char* path = NULL;
  for (int i = 1; i < argc; ++i) {
    if (!strcmp(argv[i], "--passes") && i + 1 < argc)
      passes = atoi(argv[++i]);
    else
      path = argv[i];
  }
  FILE* f = path ? fopen(path, "rb") : NULL;
  if (!f) {
    fprintf(stderr, "usage: ostrel-peer-dvbpsi [--passes N] FILE\n");
    return 2;
  }
  fseek(f, 0, SEEK_END);
  const size_t size = (size_t)ftell(f);
  fseek(f, 0, SEEK_SET);
  uint8_t* b = malloc(size + 1);
  if (!b || fread(b, 1, size, f) != size)
    return 1;
  fclose(f);
  s_handles[0] = dvbpsi_new(quiet, DVBPSI_MSG_NONE);
  dvbpsi_pat_attach(s_handles[0], onPat, NULL);
  s_handles[0x10] = dvbpsi_new(quiet, DVBPSI_MSG_NONE);
  dvbpsi_AttachDemux(s_handles[0x10], onNewTable, NULL);
  s_handles[0x11] = dvbpsi_new(quiet, DVBPSI_MSG_NONE);
  dvbpsi_AttachDemux(s_handles[0x11], onNewTable, NULL);
  for (int pass = 0; pass < passes; ++pass) {
    size_t at = 0, sync = 0;
    unsigned stride = frame(b, size, 0, &sync);
    at = sync;
    while (stride && at + 188 <= size) {
      if (b[at] != 0x47) {
        stride = frame(b, size, at, &sync);
        at = sync;
        continue;
      }
      const unsigned pid = ((b[at + 1] & 0x1F) << 8) | b[at + 2];
      /* Null packets carry nothing: the transport layer drops them, as a
       * receiver's demultiplexer does before libdvbpsi sees any packet. */
      if (pid != 0x1FFF && s_handles[pid])
        dvbpsi_packet_push(s_handles[pid], b + at);
      at += stride;
    }
  }
  printf("{\"PAT\": \"%s\", \"SDT\": \"%s\", \"NIT\": \"%s\", \"tsId\": ",
         s_pat ? "complete" : "missing", s_sdt ? "complete" : "missing",
         s_nit ? "complete" : "missing");
  if (s_pat)
    printf("%u", s_tsId);
  else
    printf("null");
  printf(", \"services\": [");
  for (int i = 0; i < s_serviceCount; ++i) {
    const Service* s = &s_services[i];
    printf("%s\n  {\"id\": %u, \"pmtPid\": ", i ? "," : "", s->id);
    if (s->pmtPid < 0)
      printf("null");
    else
      printf("%d", s->pmtPid);
    printf(", \"pmt\": \"%s\", \"name\": \"%s\", \"provider\": \"%s\"}",
           s->pmt ? "delivered" : "missing", s->name, s->provider);
  }
  printf("]}\n");
  return 0;
}
