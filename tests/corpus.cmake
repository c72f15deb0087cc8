# The robustness corpus (tools/corpus) through the scan against each stream's
# truth, on the simulator and on an emulated DVB adapter (root, /dev/fuse, a
# mount namespace; fails, never skips, without them). Minutes: labelled
# "corpus", run by .ci/steps/42-corpus.sh (ctest -L corpus), not the presets.
# Cross builds: the simulator's, under qemu-user (the 32-bit, big-endian runs).
find_program(OSTREL_PYTHON3 python3)
if(TARGET ostrel-corpus AND TARGET ostrel-scan AND OSTREL_PYTHON3)
  set(run_with "")
  if(CMAKE_CROSSCOMPILING)
    string(JOIN "\;" run_with ${CMAKE_CROSSCOMPILING_EMULATOR} "")
  endif()
  set(corpus_check ${OSTREL_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/corpus_check.py
      --corpus "${run_with}$<TARGET_FILE:ostrel-corpus>" --scan "${run_with}$<TARGET_FILE:ostrel-scan>")
  add_test(NAME corpus_sim COMMAND ${corpus_check} --sources sim --jobs 2
                                   --keep ${CMAKE_CURRENT_BINARY_DIR}/corpus_sim)
  set_tests_properties(corpus_sim PROPERTIES TIMEOUT 600 LABELS corpus)
  if(TARGET ostrel-dvb-emu AND NOT CMAKE_CROSSCOMPILING)
    # One scan at a time: emulators playing as fast as possible take a core each.
    add_test(NAME corpus_dvb COMMAND unshare -m ${corpus_check} --sources dvb --jobs 1
                                     --emu $<TARGET_FILE:ostrel-dvb-emu>
                                     --keep ${CMAKE_CURRENT_BINARY_DIR}/corpus_dvb)
    set_tests_properties(corpus_dvb PROPERTIES TIMEOUT 1200 LABELS corpus RUN_SERIAL ON)
  endif()
endif()
