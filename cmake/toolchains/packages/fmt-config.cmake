include_guard() # tools and targets both ask for it
# The headers of libfmt.
add_library(fmt::fmt-header-only INTERFACE IMPORTED)
target_include_directories(fmt::fmt-header-only INTERFACE ${sorrelSharedHeaders})
target_compile_definitions(fmt::fmt-header-only INTERFACE FMT_HEADER_ONLY=1)
