sorvane_fuzzer(convert LINK sorvane_convert)
