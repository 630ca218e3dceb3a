# sorvane_packaged(<program> <folder>): the program goes into that folder of the system package of the same name. It is
# an install component of its own, which an installation of the whole tree leaves out: packaging/debian/rules asks for it.
function(sorvane_packaged program folder)
  install(TARGETS ${program} RUNTIME DESTINATION ${folder} COMPONENT ${program} EXCLUDE_FROM_ALL)
endfunction()
