"""Reads every JSON file of a folder and keeps what they hold, as a real program would."""

import json
import pathlib
import sys

folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "/usr/share/iso-codes/json")
documents = {path.stem: json.loads(path.read_text()) for path in sorted(folder.glob("*.json"))}
entries = sum(len(items) for document in documents.values() for items in document.values() if isinstance(items, list))
print(f"{len(documents)} files, {entries} entries")
