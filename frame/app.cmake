# The application frame: start-up, signals, event loop and shutdown of the process. It lies above all
# other components and shares its folder with the process environment, which lies below them.
qov_component(
  frame_app
  FOLDER "${CMAKE_CURRENT_LIST_DIR}"
  SOURCES app_daemon.cpp app_signal_block.cpp app_signal_relay.cpp app_start_watch.cpp
          directory_lock.cpp qov_app.cpp qov_sigint_handler.cpp qov_version.cpp
          start_lines.cpp start_page.cpp start_report.cpp start_watcher.cpp
  USES frame_env config diag module)
set_source_files_properties(
  "${CMAKE_CURRENT_LIST_DIR}/qov_version.cpp"
  PROPERTIES
    COMPILE_DEFINITIONS
    "QOV_PROJECT_VERSION=\"${PROJECT_VERSION}\";QOV_PROJECT_VERSION_MAJOR=${PROJECT_VERSION_MAJOR};QOV_PROJECT_VERSION_MINOR=${PROJECT_VERSION_MINOR};QOV_PROJECT_VERSION_PATCH=${PROJECT_VERSION_PATCH}"
)
