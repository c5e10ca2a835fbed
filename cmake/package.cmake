# What people keep of a build folder: `cmake --install` puts it below a prefix, and the target "package" makes a Debian
# package of it.

# The programs stay together in a folder of their own, as in the build folder. `phone` shows its folder in the phone,
# and that is not to be /usr/bin. The daemon is no command of the desk.
set(programs libexec/dmd)

# A link at FOLDER/NAME to TARGET, which is seen from there.
function(install_link folder name target)
  set(made ${CMAKE_BINARY_DIR}/links/${folder})
  file(MAKE_DIRECTORY ${made})
  file(CREATE_LINK ${target} ${made}/${name} SYMBOLIC)
  install(FILES ${made}/${name} DESTINATION ${folder})
endfunction()

install(TARGETS dmd DESTINATION ${programs})
foreach(program phone dmd-config-check dmd-report dmd-driver-check)
  if(TARGET ${program})
    install(TARGETS ${program} DESTINATION ${programs})
    install_link(bin ${program} ../${programs}/${program})
  endif()
endforeach()
install(FILES config/device_state_monitor.conf DESTINATION share/dmd)
install_link(${programs} device_state_monitor.conf ../../share/dmd/device_state_monitor.conf)

foreach(section 1 8)
  file(GLOB pages CONFIGURE_DEPENDS docs/man/*.${section})
  install(FILES ${pages} DESTINATION share/man/man${section})
endforeach()
if(TARGET configuration_page)
  install(FILES ${CMAKE_BINARY_DIR}/man/device_state_monitor.conf.5 DESTINATION share/man/man5)
endif()

# bash looks for a file with the program's name.
set(completions share/bash-completion/completions)
install(FILES desk/completion.bash DESTINATION ${completions} RENAME dmd-desk)
foreach(program phone dmd-config-check dmd-report)
  install_link(${completions} ${program} dmd-desk)
endforeach()
install(FILES desk/completion.zsh DESTINATION share/zsh/vendor-completions RENAME _dmd-desk)

install(FILES LICENSE DESTINATION share/doc/dmd-desk RENAME copyright)

# Not "dmd", which could be taken for the daemon of a phone.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME dmd-desk)
set(CPACK_PACKAGE_VERSION ${DMD_VERSION})
set(CPACK_PACKAGE_CONTACT "The maintainers of dmd")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "phone emulator and report tools for the dmd daemon")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "dmd is the device state monitor daemon of a phone. It writes a bug report when
a driver reports an error. This package has an emulated phone that runs it on
the desk (phone), a checker of its configuration (dmd-config-check), and a
reader of the reports that phones leave (dmd-report).")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, less")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Without these, the package does not say which libraries it needs.
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
find_program(FILE_PROGRAM file)
if(DPKG_SHLIBDEPS AND FILE_PROGRAM)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/package_modes.cmake)
include(CPack)
