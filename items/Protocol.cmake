# The interfaces of the connection: both sides read the signatures from the introspection documents, which are built in
# and installed for the authors of other clients.
set(video_creator_xml ${CMAKE_CURRENT_LIST_DIR}/app.stillora.morStilloraVideoCreatorProtocol.xml)
set(creator_update_xml ${CMAKE_CURRENT_LIST_DIR}/app.stillora.morStilloraXPCCreatorUpdateProtocol.xml)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${video_creator_xml} ${creator_update_xml})
file(READ ${video_creator_xml} VIDEO_CREATOR_DOCUMENT)
file(READ ${creator_update_xml} CREATOR_UPDATE_DOCUMENT)
configure_file(ProtocolDocuments.h.in ${CMAKE_BINARY_DIR}/generated/items/ProtocolDocuments.h @ONLY)
install(FILES ${video_creator_xml} ${creator_update_xml} DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces)

target_sources(items PRIVATE morStilloraVideoCreatorProtocol.cpp)
target_include_directories(items PRIVATE ${CMAKE_BINARY_DIR}/generated)
target_link_libraries(items PUBLIC connection)
