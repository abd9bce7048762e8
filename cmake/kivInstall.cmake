# What `cmake --install` puts where.
install(TARGETS kiv kiv_program EXPORT kivTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
