# cmake --install BUILD [--component runtime|tools|docs]: the product, the programs for those who integrate it,
# and the documents as they stand in the tree. packaging/contents.py says what of it is packed where.
include(GNUInstallDirs)
set(doc_folder ${CMAKE_INSTALL_DOCDIR})

install(TARGETS zentpost zentpost_doctor RUNTIME COMPONENT runtime)
install(TARGETS addin_listener sandbox_mapi RUNTIME COMPONENT tools)
# Beside the program that registers it.
install(TARGETS sandbox_mapi_library LIBRARY DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(FILES CHANGELOG.md LICENSE README.md SECURITY.md SUPPORT.md DESTINATION ${doc_folder} COMPONENT docs)
install(DIRECTORY docs DESTINATION ${doc_folder} COMPONENT docs)
