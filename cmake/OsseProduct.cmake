# The product: KT5OSSE_INSTALL64.dll, its import library and the public headers.
get_property(families GLOBAL PROPERTY OSSE_FAMILIES)

enable_language(RC)
configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${PROJECT_BINARY_DIR}/version.rc @ONLY)

add_library(osse SHARED ${PROJECT_SOURCE_DIR}/core/ossmoduleentry.cpp ${PROJECT_BINARY_DIR}/version.rc)
target_link_libraries(osse PRIVATE ${families} osse_warnings ${OSSE_SYSTEM_LIBRARIES})
target_compile_definitions(osse PRIVATE OSS_BUILDING_LIBRARY)
target_include_directories(osse PRIVATE ${PROJECT_SOURCE_DIR})
target_include_directories(osse INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/core>
  $<INSTALL_INTERFACE:include>)
set_target_properties(osse PROPERTIES
  OUTPUT_NAME KT5OSSE_INSTALL64
  PREFIX ""
  IMPORT_PREFIX ""
  IMPORT_SUFFIX ".lib"
  RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin
  ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
# The library wraps the run-time's entry point, since it has work to do after the run-time ended.
target_link_options(osse PRIVATE LINKER:-e,ossModuleEntry LINKER:--no-insert-timestamp)

install(TARGETS osse RUNTIME DESTINATION bin ARCHIVE DESTINATION lib)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION include)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/core/ DESTINATION include FILES_MATCHING PATTERN "ecf_*.def")
# The style sheet lies beside the reports that name it; a host copies it there.
install(FILES ${PROJECT_SOURCE_DIR}/share/kt5trapfile.xsl DESTINATION share)
