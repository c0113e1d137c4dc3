"""The tables of docs/wild.md."""
import os

FILE = os.path.abspath(f"{os.path.dirname(__file__)}/../../docs/wild.md")


def replace_table(title, rows):
    """The table with this title gets these rows."""
    with open(FILE) as file:
        before, after = file.read().split(f"| {title} |\n")
    rest = [line for line in after.split("\n")]
    while rest and rest[0].startswith("|"):
        rest.pop(0)
    rule = "|" + "---|" * (title.count("|") + 1)
    with open(FILE, "w") as file:
        file.write("\n".join([before + f"| {title} |", rule, *rows, *rest]))
