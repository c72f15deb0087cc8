# bench/run's figure of a whole ostrel-scan run of a capture, against a plain
# libdvbpsi program (C) that reads the same file's tables.
find_path(OSTREL_DVBPSI_INCLUDE_DIR dvbpsi/dvbpsi.h)
find_library(OSTREL_DVBPSI_LIBRARY dvbpsi)
if(TARGET ostrel-scan AND OSTREL_DVBPSI_INCLUDE_DIR AND OSTREL_DVBPSI_LIBRARY)
  enable_language(C)
  add_executable(dvbpsi_tables dvbpsi_tables.c)
  target_include_directories(dvbpsi_tables PRIVATE ${OSTREL_DVBPSI_INCLUDE_DIR})
  target_link_libraries(dvbpsi_tables PRIVATE ${OSTREL_DVBPSI_LIBRARY})
  target_compile_options(dvbpsi_tables PRIVATE -Wall -Wextra)
  add_executable(scan_wall_report scan_wall_report.cpp)
  ostrel_tool_settings(scan_wall_report)
endif()
