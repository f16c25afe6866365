# The target GNUstep: GNUstep's Foundation and AppKit for clang++ and GCC's Objective-C run-time library.
execute_process(COMMAND gcc -print-file-name=include OUTPUT_VARIABLE gcc_includes OUTPUT_STRIP_TRAILING_WHITESPACE)
find_path(GNUSTEP_INCLUDE_DIR Foundation/Foundation.h PATHS /usr/include/GNUstep REQUIRED NO_DEFAULT_PATH)
find_library(GNUSTEP_BASE_LIBRARY gnustep-base REQUIRED)
find_library(GNUSTEP_GUI_LIBRARY gnustep-gui REQUIRED)
# Debian keeps the linker's name for it in GCC's own folder.
execute_process(COMMAND gcc -print-file-name=libobjc.so OUTPUT_VARIABLE objc_library OUTPUT_STRIP_TRAILING_WHITESPACE)

add_library(GNUstep INTERFACE)
target_compile_definitions(GNUstep INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:GNUSTEP GNUSTEP_BASE_LIBRARY=1
                           GNU_GUI_LIBRARY=1 GNU_RUNTIME=1 _NATIVE_OBJC_EXCEPTIONS>)
# objc/ lies among GCC's headers, whose others must come after clang's own.
target_compile_options(GNUstep INTERFACE
    "$<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-runtime=gcc;-fexceptions;-fobjc-exceptions;-fconstant-string-class=NSConstantString;-pthread>"
    "$<$<COMPILE_LANGUAGE:OBJCXX>:SHELL:-isystem ${GNUSTEP_INCLUDE_DIR}>"
    "$<$<COMPILE_LANGUAGE:OBJCXX>:SHELL:-idirafter ${gcc_includes}>")
target_link_libraries(GNUstep INTERFACE "${GNUSTEP_GUI_LIBRARY}" "${GNUSTEP_BASE_LIBRARY}" "${objc_library}")
