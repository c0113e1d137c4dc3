# A program in an interpreter without debug information: builds 5 MB of JSON and reads it back, in
# about 4 million allocations.
#   PYTHONMALLOC=malloc python3 json_round.py
import json

rows = [{"name": f"row {row}", "mean": row / 7, "parts": [16 * row + part for part in range(16)]}
        for row in range(31000)]
text = json.dumps(rows, separators=(",", ":"))
assert json.loads(text) == rows
print(f"{len(text)} bytes")
