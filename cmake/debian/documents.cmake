# CPack runs this after installing the components. Adds the copyright and the changelog to each package, and compresses the
# manual pages.
find_program(AWK awk REQUIRED)
find_program(DATE date REQUIRED)
find_program(GZIP gzip REQUIRED)

set(now "")
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(now --date=@$ENV{SOURCE_DATE_EPOCH})
endif()
execute_process(COMMAND ${DATE} --utc --rfc-email ${now}
  OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(changelog ${CPACK_TOPLEVEL_DIRECTORY}/changelog.Debian)
execute_process(
  COMMAND ${AWK} -f ${CMAKE_CURRENT_LIST_DIR}/changelog.awk -v source=${CPACK_DEBIAN_PACKAGE_SOURCE}
    -v release=${CPACK_DEBIAN_PACKAGE_RELEASE} -v maintainer=${CPACK_DEBIAN_PACKAGE_MAINTAINER} -v date=${date}
    ${CPACK_RK_CHANGELOG}
  OUTPUT_FILE ${changelog} COMMAND_ERROR_IS_FATAL ANY)

function(compress file)
  execute_process(COMMAND ${GZIP} --best --no-name --force ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} name)
  set(usr ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)
  set(folder ${usr}/share/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME})
  file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright ${changelog} DESTINATION ${folder} NO_SOURCE_PERMISSIONS)
  compress(${folder}/changelog.Debian)

  file(GLOB_RECURSE pages ${usr}/share/man/*.[1-9])
  foreach(page IN LISTS pages)
    compress(${page})
  endforeach()
endforeach()
