# Copies each of the `samples` from `built` into the set that is installed, once in the life of that set: what a viewer
# has changed or removed stays so. A mark for each sample tells that the set has had it.
set(apps "$ENV{DESTDIR}/opt/usr/apps")
set(web_caches "$ENV{DESTDIR}/opt/usr/home/owner/.cache/Apps/WebAppsCache")
set(marks "$ENV{DESTDIR}/var/lib/vexilo-host/samples")
set(shipped "")

foreach(sample IN LISTS samples)
  file(READ ${built}/${sample}/package/manifest.json manifest)
  string(JSON app_id GET "${manifest}" app_id)
  string(APPEND shipped ${sample})
  string(JSON removable ERROR_VARIABLE none GET "${manifest}" removable)
  if(removable STREQUAL "OFF")
    string(APPEND shipped " fixed")
  endif()
  string(APPEND shipped "\n")
  if(NOT EXISTS "${marks}/${sample}" AND NOT EXISTS "${apps}/${sample}")
    message(STATUS "Installing: ${apps}/${sample}")
    if(EXISTS ${built}/${sample}/web_cache)
      file(COPY ${built}/${sample}/web_cache/ DESTINATION "${web_caches}/${app_id}")
    endif()
    # It appears whole; the platform does not look at hidden names.
    set(hidden "${apps}/.installing-${sample}")
    file(REMOVE_RECURSE "${hidden}")
    file(COPY ${built}/${sample}/package/ DESTINATION "${hidden}")
    file(RENAME "${hidden}" "${apps}/${sample}")
  endif()
  file(MAKE_DIRECTORY "${marks}")
  file(TOUCH "${marks}/${sample}")
endforeach()

# Which packages are the set's own, and of them those that stay.
file(WRITE "$ENV{DESTDIR}/usr/share/vexilo/packages" "${shipped}")
