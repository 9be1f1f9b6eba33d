# What the packages bring besides the programs. The service expects the prefix /usr.
install(FILES deploy/tolquil.service DESTINATION lib/systemd/system)
install(FILES deploy/tolquil.sysusers DESTINATION lib/sysusers.d RENAME tolquil.conf)
install(FILES deploy/tolquil.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/morn)
install(FILES docs/installing.md docs/interfaces.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tolquil)
install(DIRECTORY deploy/broker deploy/ports DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tolquil/examples)
install(FILES deploy/tolquil.conf DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tolquil/examples)

set(programs tolquil)
if(TOLQUIL_TOOLS)
  list(APPEND programs quilctl ecusim tolquil-uplink)
  install(FILES deploy/tolquil-uplink.service DESTINATION lib/systemd/system)
  install(FILES deploy/tolquil-uplink.sysusers DESTINATION lib/sysusers.d RENAME tolquil-uplink.conf)
  install(FILES deploy/tolquil-uplink.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/morn)
  install(FILES docs/fleet.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tolquil-uplink)
  install(PROGRAMS deploy/fleet/fleet-certificates DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tolquil-uplink/examples)
  install(FILES docs/ecusim.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/ecusim)
  install(FILES tools/ecusim/default_scenario.json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/ecusim/examples)
endif()

foreach(program IN LISTS programs)
  install(FILES deploy/completion/${program}.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME ${program})
  install(FILES deploy/completion/_${program} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  file(GLOB pages docs/man/${program}.*)
  foreach(page IN LISTS pages)
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  endforeach()
endforeach()

# What applications are built against: the package tolquil-dev.
set(dev_folder ${CMAKE_INSTALL_DATADIR}/tolquil)
configure_file(deploy/tolquil.pc.in tolquil.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/tolquil.pc DESTINATION ${CMAKE_INSTALL_DATADIR}/pkgconfig COMPONENT dev)
install(FILES docs/asyncapi.yaml docs/catalogue.json DESTINATION ${dev_folder} COMPONENT dev)
install(FILES platform/proto/ecu/tamu/pb/messages.proto DESTINATION ${dev_folder}/proto/ecu/tamu/pb COMPONENT dev)
