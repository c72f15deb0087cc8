# bench/run's figure of the DVB server: sections per second through the
# emulated demux to injectData, beside a bare reader of the same filter.
if(TARGET OstrelDvbServer AND TARGET OstrelSim)
  add_executable(dvb_delivery_report dvb_delivery_report.cpp)
  target_link_libraries(dvb_delivery_report PRIVATE OstrelDvbServer OstrelSim OstrelLogger)
  ostrel_tool_settings(dvb_delivery_report)
endif()
