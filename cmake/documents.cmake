# Copies the documents to the folder TO, for the installation, with the folders of the tree FROM: so their links to each
# other stay valid. Links to headers lead to the installed headers: HEADERS and DOCUMENTS are the folders of both,
# relative to the installation's prefix.
file(REMOVE_RECURSE "${TO}")
file(GLOB_RECURSE documents RELATIVE "${FROM}" "${FROM}/docs/*")
foreach(document IN ITEMS LICENSE README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md python/README.md LISTS documents)
  get_filename_component(folder "${document}" DIRECTORY)
  if(document MATCHES "\\.md$")
    file(RELATIVE_PATH headers "/${DOCUMENTS}/${folder}" "/${HEADERS}")
    file(READ "${FROM}/${document}" text)
    string(REGEX REPLACE "\\]\\((\\.\\./)*(tvservice-adapter|testing|receiver/service-kit|receiver/media)/include/" "](${headers}/"
           text "${text}")
    file(WRITE "${TO}/${document}" "${text}")
  else()
    file(COPY "${FROM}/${document}" DESTINATION "${TO}/${folder}")
  endif()
endforeach()
