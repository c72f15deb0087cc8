# The robustness corpus (tools/corpus) through the scan and the truth of each
# stream: on the simulator, and on an emulated DVB adapter (root, /dev/fuse, a
# private mount namespace; fails, never skips, without them).
find_program(OSTREL_PYTHON3 python3)
if(TARGET ostrel-corpus AND TARGET ostrel-scan AND OSTREL_PYTHON3 AND NOT CMAKE_CROSSCOMPILING)
  set(corpus_check ${OSTREL_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/corpus_check.py
      --corpus $<TARGET_FILE:ostrel-corpus> --scan $<TARGET_FILE:ostrel-scan>)
  add_test(NAME corpus_sim COMMAND ${corpus_check} --sources sim
                                   --keep ${CMAKE_CURRENT_BINARY_DIR}/corpus_sim)
  set_tests_properties(corpus_sim PROPERTIES TIMEOUT 300)
  if(TARGET ostrel-dvb-emu)
    add_test(NAME corpus_dvb COMMAND unshare -m ${corpus_check} --sources dvb
                                     --emu $<TARGET_FILE:ostrel-dvb-emu>
                                     --keep ${CMAKE_CURRENT_BINARY_DIR}/corpus_dvb)
    set_tests_properties(corpus_dvb PROPERTIES TIMEOUT 1200)
  endif()
endif()
