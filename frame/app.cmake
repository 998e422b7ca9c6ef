# The application frame: start-up, signals, event loop and shutdown of the process. It lies above all
# other components and shares its folder with the process environment, which lies below them.
qov_component(
  frame_app
  FOLDER "${CMAKE_CURRENT_LIST_DIR}"
  SOURCES app_daemon.cpp app_signal_block.cpp app_signal_relay.cpp app_start_watch.cpp
          app_stop_watch.cpp qov_app.cpp qov_sigint_handler.cpp
  USES frame_env diag module)
