# What a package of the library holds: both libraries, the headers, the command with its manual pages and
# completions, and the files by which other builds find them.
include(CMakePackageConfigHelpers)

install(TARGETS QVROAuth2Client EXPORT QVROAuth2ClientTargets)
install(TARGETS QVROAuth2ClientStatic ARCHIVE)
install(DIRECTORY include/QVROAuth2Client TYPE INCLUDE)

# zsh looks into site-functions below /usr/local everywhere, and below /usr but for Debian, whose packages
# have vendor-completions there instead: such a package sets this to share/zsh/vendor-completions.
set(QVR_ZSH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
    "The folder of the completion for zsh, below the prefix if it is relative")
if(QVR_BUILD_HOST)
  install(TARGETS qvr-oauth2)
  install(FILES docs/man/qvr-oauth2.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES docs/man/qvr-oauth2-config.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
  # bash-completion loads the file of the command's name.
  install(FILES packaging/completions/qvr-oauth2.bash RENAME qvr-oauth2
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES packaging/completions/_qvr-oauth2 DESTINATION ${QVR_ZSH_COMPLETIONS})
  install(FILES packaging/completions/qvr-oauth2.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()

set(QVR_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/QVROAuth2Client)
install(EXPORT QVROAuth2ClientTargets NAMESPACE QVROAuth2Client:: DESTINATION ${QVR_CMAKE_FOLDER})
configure_package_config_file(cmake/QVROAuth2ClientConfig.cmake.in QVROAuth2ClientConfig.cmake
                              INSTALL_DESTINATION ${QVR_CMAKE_FOLDER})
write_basic_package_version_file(QVROAuth2ClientConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QVROAuth2ClientConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/QVROAuth2ClientConfigVersion.cmake
        DESTINATION ${QVR_CMAKE_FOLDER})

# Found from the file's own place, so that an installed tree can be moved.
file(RELATIVE_PATH QVR_PREFIX_FROM_PKGCONFIG /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/QVROAuth2Client.pc.in QVROAuth2Client.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QVROAuth2Client.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
