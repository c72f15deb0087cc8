/* ostrel-peer-dvbv5: libdvbv5's reading of a demux (dvb_read_section: its
 * own gathering of a table's sections), as JSON in the shape of
 * ostrel-peer-dvbpsi: PAT, SDT (actual) and NIT (actual) "complete" or
 * "missing", the transport stream id, the services and their PMTs.
 *
 *   ostrel-peer-dvbv5 DEMUX [TIMEOUT-SECONDS [--pmts]]   e.g. DIR/adapter0/demux0
 *
 * The PMTs are read with --pmts only (one read each: slow on many services). */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <libdvbv5/desc_service.h>
#include <libdvbv5/descriptors.h>
#include <libdvbv5/dvb-fe.h>
#include <libdvbv5/dvb-scan.h>
#include <libdvbv5/nit.h>
#include <libdvbv5/pat.h>
#include <libdvbv5/pmt.h>
#include <libdvbv5/sdt.h>

#define MAX_SERVICES 512

typedef struct {
  unsigned id;
  int pmtPid; /* -1: not in the PAT */
  int pmt;
  const char* name;
  const char* provider;
} Service;

static Service s_services[MAX_SERVICES];
static int s_count;

static Service* service(unsigned id) {
  for (int i = 0; i < s_count; ++i)
    if (s_services[i].id == id)
      return &s_services[i];
  if (s_count == MAX_SERVICES)
    return NULL;
  Service* s = &s_services[s_count++];
  memset(s, 0, sizeof(*s));
  s->id = id, s->pmtPid = -1, s->name = "", s->provider = "";
  return s;
}

static void quoted(const char* text) {
  putchar('"');
  for (; text && *text; ++text)
    if ((unsigned char)*text >= 0x20 && *text != '"' && *text != '\\')
      putchar(*text);
  putchar('"');
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: ostrel-peer-dvbv5 DEMUX [TIMEOUT-SECONDS [--pmts]]\n");
    return 2;
  }
  const unsigned timeout = argc > 2 ? (unsigned)atoi(argv[2]) : 5;
  const int readPmts = argc > 3 && !strcmp(argv[3], "--pmts");
  const int fd = open(argv[1], O_RDWR);
  if (fd < 0) {
    perror(argv[1]);
    return 1;
  }
  struct dvb_v5_fe_parms* parms = dvb_fe_dummy();
  parms->verbose = 0;
  struct dvb_table_pat* pat = NULL;
  struct dvb_table_sdt* sdt = NULL;
  struct dvb_table_nit* nit = NULL;
  dvb_read_section(parms, fd, DVB_TABLE_PAT, DVB_TABLE_PAT_PID, (void**)&pat, timeout);
  dvb_read_section(parms, fd, DVB_TABLE_SDT, DVB_TABLE_SDT_PID, (void**)&sdt, timeout);
  dvb_read_section(parms, fd, DVB_TABLE_NIT, DVB_TABLE_NIT_PID, (void**)&nit, timeout);
  dvb_pat_program_foreach(program, pat) {
    if (program->service_id == 0)
      continue;
    Service* s = service(program->service_id);
    if (!s)
      continue;
    s->pmtPid = program->pid;
    if (readPmts) {
      struct dvb_table_pmt* pmt = NULL;
      dvb_read_section_with_id(parms, fd, DVB_TABLE_PMT, program->pid, program->service_id,
                               (void**)&pmt, timeout);
      s->pmt = pmt != NULL;
      if (pmt)
        dvb_table_pmt_free(pmt);
    }
  }
  dvb_sdt_service_foreach(entry, sdt) {
    Service* s = service(entry->service_id);
    dvb_desc_foreach(desc, entry) {
      if (s && desc->type == service_descriptor) {
        const struct dvb_desc_service* d = (const struct dvb_desc_service*)desc;
        s->name = d->name ? d->name : "", s->provider = d->provider ? d->provider : "";
      }
    }
  }
  printf("{\"PAT\": \"%s\", \"SDT\": \"%s\", \"NIT\": \"%s\", \"tsId\": ",
         pat ? "complete" : "missing", sdt ? "complete" : "missing", nit ? "complete" : "missing");
  if (pat)
    printf("%u", pat->header.id);
  else
    printf("null");
  printf(", \"services\": [");
  for (int i = 0; i < s_count; ++i) {
    printf("%s\n  {\"id\": %u, \"pmtPid\": ", i ? "," : "", s_services[i].id);
    if (s_services[i].pmtPid < 0)
      printf("null");
    else
      printf("%d", s_services[i].pmtPid);
    printf(", \"pmt\": \"%s\", \"name\": ", s_services[i].pmt ? "delivered"
                                            : readPmts        ? "missing"
                                                              : "not read");
    quoted(s_services[i].name);
    printf(", \"provider\": ");
    quoted(s_services[i].provider);
    printf("}");
  }
  printf("]}\n");
  close(fd);
  return 0;
}
