# Writes INPUT's text into OUTPUT as a C++ raw string constant.
file(READ ${INPUT} text)
get_filename_component(name ${INPUT} NAME)
file(WRITE ${OUTPUT} "#pragma once\n// Made at build time from ${name}.\ninline constexpr const char* kDemoScript = R\"motilane_demo(${text})motilane_demo\";\n")
