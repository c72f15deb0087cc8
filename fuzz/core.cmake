# libFuzzer targets of the core's request and injection road and of the
# simulator's transport-stream demux, included by fuzz/CMakeLists.txt. The
# core, its follower and cache, the command library and the logger are built
# here again, instrumented, as one static library beside the tables'.
find_package(Threads REQUIRED)

add_library(ostrel_core_fuzzed STATIC
  ${OSTREL_ROOT}/core/OstrelGingaCommonCore.cpp
  ${OSTREL_ROOT}/core/OstrelGingaCommonCore_injection.cpp
  ${OSTREL_ROOT}/core/OstrelGingaCommonCore_keys.cpp
  ${OSTREL_ROOT}/core/OstrelGingaCommonCore_requests.cpp
  ${OSTREL_ROOT}/core/OstrelGingaCommonCore_tuners.cpp
  ${OSTREL_ROOT}/core/OstrelGingaCommonCore_video.cpp
  ${OSTREL_ROOT}/cache/Cacher.cpp
  ${OSTREL_ROOT}/cache/CacherItem.cpp
  ${OSTREL_ROOT}/follower/RequestFollower.cpp
  ${OSTREL_ROOT}/follower/RequestFollowerItem.cpp
  ${OSTREL_ROOT}/platform/commands/GingaServer.cpp
  ${OSTREL_ROOT}/platform/commands/TAppCommand.cpp
  ${OSTREL_ROOT}/platform/commands/TCommand.cpp
  ${OSTREL_ROOT}/platform/commands/TDataRequestCommand.cpp
  ${OSTREL_ROOT}/platform/commands/TGetTunerListCommand.cpp
  ${OSTREL_ROOT}/platform/commands/TGetTunerListResponse.cpp
  ${OSTREL_ROOT}/platform/commands/TNotifyStatusChange.cpp
  ${OSTREL_ROOT}/platform/commands/TReleaseKeyCommand.cpp
  ${OSTREL_ROOT}/platform/commands/TReserveKeyCommand.cpp
  ${OSTREL_ROOT}/platform/commands/TSyncDataRequestCommand.cpp
  ${OSTREL_ROOT}/platform/commands/TTableKeyCommand.cpp
  ${OSTREL_ROOT}/platform/commands/TVideoCheckSize.cpp
  ${OSTREL_ROOT}/platform/commands/TVideoCommand.cpp
  ${OSTREL_ROOT}/platform/commands/TVideoGetDefaultSize.cpp
  ${OSTREL_ROOT}/platform/commands/TVideoGetSize.cpp
  ${OSTREL_ROOT}/platform/commands/TVideoGetSourceVideoSize.cpp
  ${OSTREL_ROOT}/platform/commands/TVideoSetSize.cpp
  ${OSTREL_ROOT}/platform/logger/OstrelLogger.cpp)
target_include_directories(ostrel_core_fuzzed PUBLIC
  ${OSTREL_ROOT}/core ${OSTREL_ROOT}/cache ${OSTREL_ROOT}/follower
  ${OSTREL_ROOT}/platform/commands ${OSTREL_ROOT}/platform/logger)
target_compile_options(ostrel_core_fuzzed PRIVATE -fsanitize=fuzzer-no-link ${OSTREL_SANITIZE}
                                                  -Wall -Wextra -Werror)
target_link_libraries(ostrel_core_fuzzed PUBLIC ostrel_tables_fuzzed Threads::Threads)
set_target_properties(ostrel_core_fuzzed PROPERTIES CXX_STANDARD 11)

add_library(ostrel_demux_fuzzed STATIC
  ${OSTREL_ROOT}/sim/SectionDemux.cpp
  ${OSTREL_ROOT}/sim/TsPacket.cpp
  ${OSTREL_ROOT}/sim/TsPacketizer.cpp)
target_include_directories(ostrel_demux_fuzzed PUBLIC ${OSTREL_ROOT}/sim)
target_compile_options(ostrel_demux_fuzzed PRIVATE -fsanitize=fuzzer-no-link ${OSTREL_SANITIZE}
                                                   -Wall -Wextra -Werror)
target_link_libraries(ostrel_demux_fuzzed PUBLIC ostrel_tables_fuzzed)

foreach(target inject_data ts_demux)
  add_executable(fuzz_${target} fuzz_${target}.cpp)
  target_compile_options(fuzz_${target} PRIVATE -fsanitize=fuzzer ${OSTREL_SANITIZE}
                                                -Wall -Wextra -Werror)
  target_link_options(fuzz_${target} PRIVATE -fsanitize=fuzzer,address,undefined)
endforeach()
target_link_libraries(fuzz_inject_data PRIVATE ostrel_core_fuzzed)
target_link_libraries(fuzz_ts_demux PRIVATE ostrel_demux_fuzzed)

# Seeds: write_core_seeds inject_data|ts_demux <directory>.
add_executable(write_core_seeds write_core_seeds.cpp
  ${OSTREL_ROOT}/sim/SampleStream.cpp ${OSTREL_ROOT}/sim/TsPacketWriter.cpp)
target_include_directories(write_core_seeds PRIVATE ${OSTREL_ROOT}/tests/data/tables)
target_link_libraries(write_core_seeds PRIVATE ostrel_demux_fuzzed)
target_link_options(write_core_seeds PRIVATE -fsanitize=address,undefined)
