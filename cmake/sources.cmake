# Source lists of the daemon. Android.bp lists the very same files for the
# device build; tests/build/android_bp_test.cpp keeps the two in step.

set(LUMX_CORE_SOURCES
  common/dev_root.cpp
  common/lumx_utils.cpp
  daemon/lumxd.cpp
  daemon/lumx_control.cpp
  daemon/device_watch.cpp
  service/lumx_service.cpp
  service/use_cases.cpp
  service/buffer_ops.cpp
  service/processor_ops.cpp
  service/param_ops.cpp
  service/tap_ops.cpp
  service/graph_ops.cpp
  service/dump_ops.cpp
  buffer/lumx_buffer.cpp
  buffer/lumx_buffer_io.cpp
  processors/lumx_processor.cpp
  processors/passthru_processor.cpp
  processors/audio_relay_processor.cpp
)

set(LUMX_DAEMON_MAIN daemon/main.cpp)
