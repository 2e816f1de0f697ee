"""Writes quorblen.pyi, the type stub of the built module in FOLDER, from the signatures that
lead its functions' docstrings. Usage: make_stub.py FOLDER"""
import os
import sys
import textwrap

folder = sys.argv[1]
sys.path.insert(0, folder)
import quorblen  # noqa: E402  (the module just built, from FOLDER)

lines = [f'"""{quorblen.__doc__}"""', "import os", "import numpy", "import numpy.typing", "",
         "__version__: str", ""]
for name, function in vars(quorblen).items():
    if callable(function) and not name.startswith("_"):
        signature, _, doc = function.__doc__.partition("\n")
        assert signature.startswith(name + "(") and '"""' not in doc, name
        docstring = textwrap.indent(f'"""{doc.strip()}\n"""', "    ")
        lines += ["", f"def {signature}:", docstring, "    ...", ""]
with open(os.path.join(folder, "quorblen.pyi"), "w") as stub:
    stub.write("\n".join(lines))
