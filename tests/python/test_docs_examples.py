"""The runner of the documented examples fails when an example fails, runs
what a reader would run and skips, with the reason, only what is marked."""

from __future__ import annotations

import importlib.util
import sys

import pytest

from conftest import REPO

BUILD = REPO / "build"
DOCUMENT = """\
# Example

```sh
vemo-flow frame1.png frame2.png -o out/flow.flo
```

<!-- docs-test: skip needs a scheduler -->
```sh
exit 3
```

```cpp
this is not run
```

```python
import vemo
print(vemo.read_flo("out/flow.flo").shape)
```

```sh
test -f out/flow.flo && false
```
"""


def test_a_failing_example_fails_the_run_and_marked_ones_are_skipped(tmp_path, capsys):
    if not (BUILD / "vemo-flow").is_file():
        pytest.skip("the programs are not built in build/")
    loader_spec = importlib.util.spec_from_file_location("docs_examples", REPO / "scripts" / "docs_examples.py")
    runner = importlib.util.module_from_spec(loader_spec)
    sys.modules[loader_spec.name] = runner
    loader_spec.loader.exec_module(runner)
    document = tmp_path / "example.md"
    document.write_text(DOCUMENT)
    assert runner.main([str(document), "--build", str(BUILD)]) == 1
    out = capsys.readouterr().out
    # Blocks run in order in one folder: the Python block reads what the
    # first one wrote.
    assert f"docs: ok      {document}:3 " in out and f"docs: ok      {document}:16 " in out
    assert f"docs: SKIPPED {document}:8 (needs a scheduler)" in out
    assert f"docs: FAILED  {document}:21 (status 1)" in out
    assert "docs: 3 examples run, 1 failed, 1 skipped" in out
