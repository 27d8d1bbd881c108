# D-Bus, for the desktop's keyring, redirects and notifications: headers only, since libsystemd is
# loaded on first use.
pkg_check_modules(SYSTEMD IMPORTED_TARGET libsystemd)
option(QVR_WITH_SYSTEM_BUS "Build what speaks D-Bus" ${SYSTEMD_FOUND})
if(QVR_WITH_SYSTEM_BUS AND NOT SYSTEMD_FOUND)
  message(FATAL_ERROR "QVR_WITH_SYSTEM_BUS needs libsystemd's headers (libsystemd-dev)")
endif()
if(QVR_WITH_SYSTEM_BUS)
  message(STATUS "D-Bus: by libsystemd ${SYSTEMD_VERSION}, loaded on first use")
else()
  message(STATUS "D-Bus: left out; there will be no Secret Service keychain, no redirects by D-Bus")
endif()

# Takes out of a list of source files those that this build leaves out: what speaks D-Bus or
# is tested with a service on it, or what stands in for it.
function(qvr_choose_bus_sources list)
  if(QVR_WITH_SYSTEM_BUS)
    list(FILTER ${list} EXCLUDE REGEX "/WithoutSystemBus[^/]*\\.cpp$")
  else()
    list(FILTER ${list} EXCLUDE REGEX
         "/(Bus|CommandDoctor|DesktopPortal|FakePortal|FakeSecretService|KeyringProgram|Notification|SecretService|URLReceiver)[^/]*\\.cpp$")
  endif()
  set(${list} "${${list}}" PARENT_SCOPE)
endfunction()
