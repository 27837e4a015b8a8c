# What the Python wheel holds besides the extension and the .py files: the library of every level, each under the name
# the loader looks for. A wheel cannot hold symbolic links, so the baseline goes in as the file of its soname. The
# extension finds them through its RUNPATH, $ORIGIN/lib; the loader picks the level there as anywhere else.

install(PROGRAMS "$<TARGET_FILE:velacamplix>" DESTINATION velacamplix/lib COMPONENT python
        RENAME "$<TARGET_SONAME_FILE_NAME:velacamplix>")
foreach(level IN LISTS velacamplix_levels)
    string(REPLACE x86-64- velacamplix_ target ${level})
    install(PROGRAMS "$<TARGET_FILE:${target}>" DESTINATION "velacamplix/lib/glibc-hwcaps/${level}" COMPONENT python
            RENAME "$<TARGET_SONAME_FILE_NAME:${target}>")
endforeach()
