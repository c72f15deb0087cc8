/* The reference of the scan's wall time: a plain libdvbpsi program that reads
 * a transport-stream file's tables (the PAT, each PMT it names, the SDT and
 * the NIT of the actual transport stream) from start to end and prints how
 * many services each named. bench/run times it beside ostrel-scan --fast
 * --once on the same file.
 *
 *   dvbpsi_tables FILE.ts */
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

/* libdvbpsi's headers need the standard types first, and dvbpsi.h first. */
#include <dvbpsi/dvbpsi.h>
/* Then the sections and descriptors, which the tables' headers use. */
#include <dvbpsi/descriptor.h>
#include <dvbpsi/psi.h>
/* Then the demux and the tables. */
#include <dvbpsi/demux.h>
#include <dvbpsi/nit.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/sdt.h>

#define MAX_PROGRAMS 64
#define PACKET 188

struct program {
  uint16_t number;
  uint16_t pid;
  dvbpsi_t* handle;
  int streams; /* -1 until its PMT came */
};

static dvbpsi_t* s_pat;
static dvbpsi_t* s_si; /* the SDT's PID */
static dvbpsi_t* s_nit;
static struct program s_programs[MAX_PROGRAMS];
static int s_program_count = -1; /* -1 until the PAT came */
static int s_sdt_services = -1;
static int s_nit_streams = -1;

static void on_pmt(void* data, dvbpsi_pmt_t* pmt) {
  struct program* program = data;
  int streams = 0;
  for (dvbpsi_pmt_es_t* es = pmt->p_first_es; es; es = es->p_next) {
    ++streams;
  }
  program->streams = streams;
  dvbpsi_pmt_delete(pmt);
}

static void on_pat(void* data, dvbpsi_pat_t* pat) {
  (void)data;
  if (s_program_count < 0) {
    s_program_count = 0;
    for (dvbpsi_pat_program_t* p = pat->p_first_program; p && s_program_count < MAX_PROGRAMS;
         p = p->p_next) {
      if (p->i_number == 0) {
        continue; /* the NIT's PID */
      }
      struct program* program = &s_programs[s_program_count++];
      program->number = p->i_number;
      program->pid = p->i_pid;
      program->streams = -1;
      program->handle = dvbpsi_new(NULL, DVBPSI_MSG_NONE);
      dvbpsi_pmt_attach(program->handle, p->i_number, on_pmt, program);
    }
  }
  dvbpsi_pat_delete(pat);
}

static void on_sdt(void* data, dvbpsi_sdt_t* sdt) {
  (void)data;
  int services = 0;
  for (dvbpsi_sdt_service_t* s = sdt->p_first_service; s; s = s->p_next) {
    ++services;
  }
  s_sdt_services = services;
  dvbpsi_sdt_delete(sdt);
}

static void on_nit(void* data, dvbpsi_nit_t* nit) {
  (void)data;
  int streams = 0;
  for (dvbpsi_nit_ts_t* ts = nit->p_first_ts; ts; ts = ts->p_next) {
    ++streams;
  }
  s_nit_streams = streams;
  dvbpsi_nit_delete(nit);
}

/* The demux of the SDT's and NIT's PIDs, called for a table that has no
 * decoder yet: the actual transport stream's SDT and NIT get one. */
static void on_new_table(dvbpsi_t* handle, uint8_t table_id, uint16_t extension, void* data) {
  (void)data;
  if (table_id == 0x42) {
    dvbpsi_sdt_attach(handle, table_id, extension, on_sdt, NULL);
  } else if (table_id == 0x40) {
    dvbpsi_nit_attach(handle, table_id, extension, on_nit, NULL);
  }
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: dvbpsi_tables FILE.ts\n");
    return 2;
  }
  FILE* in = fopen(argv[1], "rb");
  if (!in) {
    perror(argv[1]);
    return 1;
  }
  s_pat = dvbpsi_new(NULL, DVBPSI_MSG_NONE);
  s_si = dvbpsi_new(NULL, DVBPSI_MSG_NONE);
  s_nit = dvbpsi_new(NULL, DVBPSI_MSG_NONE);
  dvbpsi_pat_attach(s_pat, on_pat, NULL);
  dvbpsi_AttachDemux(s_si, on_new_table, NULL);
  dvbpsi_AttachDemux(s_nit, on_new_table, NULL);
  static uint8_t buffer[PACKET * 1024];
  size_t got;
  while ((got = fread(buffer, PACKET, sizeof(buffer) / PACKET, in)) > 0) {
    for (size_t i = 0; i < got; ++i) {
      uint8_t* packet = buffer + i * PACKET;
      if (packet[0] != 0x47) {
        continue;
      }
      const uint16_t pid = (uint16_t)(((packet[1] & 0x1F) << 8) | packet[2]);
      if (pid == 0x0000) {
        dvbpsi_packet_push(s_pat, packet);
      } else if (pid == 0x0010) {
        dvbpsi_packet_push(s_nit, packet);
      } else if (pid == 0x0011) {
        dvbpsi_packet_push(s_si, packet);
      } else {
        for (int p = 0; p < s_program_count; ++p) {
          if (s_programs[p].pid == pid) {
            dvbpsi_packet_push(s_programs[p].handle, packet);
          }
        }
      }
    }
  }
  fclose(in);
  int pmts = 0;
  for (int p = 0; p < s_program_count; ++p) {
    pmts += s_programs[p].streams >= 0;
    dvbpsi_pmt_detach(s_programs[p].handle);
    dvbpsi_delete(s_programs[p].handle);
  }
  printf("PAT %d programmes, %d PMTs, SDT %d services, NIT %d transport streams\n", s_program_count,
         pmts, s_sdt_services, s_nit_streams);
  dvbpsi_pat_detach(s_pat);
  dvbpsi_DetachDemux(s_si);
  dvbpsi_DetachDemux(s_nit);
  dvbpsi_delete(s_pat);
  dvbpsi_delete(s_si);
  dvbpsi_delete(s_nit);
  return s_program_count < 0 ? 3 : 0;
}
