find_package(fmt REQUIRED)
sorvane_micro_benchmark(convert LINK sorvane_convert fmt::fmt)
