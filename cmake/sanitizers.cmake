if(OSTREL_SANITIZE)
  add_compile_options(-fsanitize=${OSTREL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${OSTREL_SANITIZE})
endif()
if(OSTREL_FUZZ)
  # Coverage for libFuzzer everywhere; only the fuzz targets link its main.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
