# The units, the default configuration, and what the system needs for both: users, folders,
# buffers, rotation of the log. Paths of the programs are written into the units.

# The system looks for configuration in /etc, whichever of the two usual prefixes it is.
set(etc ${CMAKE_INSTALL_FULL_SYSCONFDIR})
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?$")
  set(etc /etc)
endif()
set(TARNWICK_UNIT_DIR lib/systemd/system CACHE STRING "Where units are installed")
file(READ systemd/hardening HARDENING)
string(STRIP "${HARDENING}" HARDENING)
set(BIN ${CMAKE_INSTALL_FULL_BINDIR})
set(ETC ${etc})
set(LIBEXEC ${CMAKE_INSTALL_FULL_LIBEXECDIR}/tarnwick)

# Installs the unit SOURCE.in under the name UNIT.
function(tarnwick_unit SOURCE UNIT)
  configure_file(systemd/${SOURCE}.in ${UNIT} @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${UNIT} DESTINATION ${TARNWICK_UNIT_DIR})
endfunction()

# Installs the file SOURCE as TARGET below the configuration folder; an existing file stays.
function(tarnwick_configuration SOURCE TARGET)
  set(at "${etc}/${TARGET}")
  get_filename_component(folder ${at} DIRECTORY)
  get_filename_component(name ${at} NAME)
  install(CODE "
    if(NOT EXISTS \"\$ENV{DESTDIR}${at}\")
      file(INSTALL FILES \"${CMAKE_CURRENT_SOURCE_DIR}/${SOURCE}\" DESTINATION \"${folder}\"
           RENAME \"${name}\")
    endif()")
endfunction()

function(tarnwick_system NAME)
  install(FILES sysusers.d/${NAME}.conf DESTINATION lib/sysusers.d)
  install(FILES tmpfiles.d/${NAME}.conf DESTINATION lib/tmpfiles.d)
  install(FILES sysctl.d/60-${NAME}.conf DESTINATION lib/sysctl.d)
endfunction()

set(sender "@${CMAKE_INSTALL_FULL_SBINDIR}/tarnwick ${etc}/tarnwick/tarnwick")
foreach(unit tarnwick.service tarnwick-journal.service tarnwick-journal.timer)
  set(SENDER "${sender}")
  set(CONFIGURATION ${etc}/tarnwick/tarnwick_cfg)
  set(OF_INSTANCE "")
  tarnwick_unit(${unit} ${unit})
  set(SENDER "${sender}-%i -o:${etc}/tarnwick/%i.conf")
  set(CONFIGURATION ${etc}/tarnwick/%i.conf)
  set(OF_INSTANCE " (%i)")
  string(REPLACE "." "@." template ${unit})
  tarnwick_unit(${unit} ${template})
endforeach()
install(PROGRAMS systemd/await-file DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/tarnwick)
tarnwick_configuration(etc/tarnwick_cfg tarnwick/tarnwick_cfg)
tarnwick_configuration(logrotate/tarnwick logrotate.d/tarnwick)
tarnwick_system(tarnwick)
if(TARGET tarnwick-receive)
  tarnwick_unit(tarnwick-receive@.service tarnwick-receive@.service)
  tarnwick_configuration(etc/receive-main.conf tarnwick-receive/main.conf)
  tarnwick_system(tarnwick-receive)
endif()
install(FILES prometheus/tarnwick.rules.yml grafana/tarnwick.json
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
