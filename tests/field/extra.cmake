#The tool is run as its users run it, on installations made of the programs just built.
add_dependencies(field_tests zat_tool zat_till zat_ms zat_mm zat_mu)
