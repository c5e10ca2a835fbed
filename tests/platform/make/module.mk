$(print-module)
