#!/usr/bin/python3
"""interrupt_test.py COMMAND...: Ctrl-C ends addin_listener, which COMMAND starts, within two seconds, with
its port file gone. Under Wine the signal becomes the console's event."""
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "samples" / "vectors"))
import vectors  # noqa: E402

command = sys.argv[1:]
if subprocess.run([*command, "--version"], stdin=subprocess.DEVNULL, check=False).returncode == 77:
    sys.exit(77)
problems = []
with tempfile.TemporaryDirectory() as folder:
    port_file = pathlib.Path(folder, "port.txt")
    # Without a limit the end is no failure; else too few came.
    for count, expected in ((0, 0), (1, 4)):
        with vectors.Running(command, "--count", count, "--port-file", port_file) as running:
            with vectors.connect(running.port) as half:
                half.sendall(b"{")
                vectors.connect(running.port).close()
                running.await_text("connection 2: probe")
                had_file = port_file.exists()
                start = time.monotonic()
                running.process.send_signal(signal.SIGINT)
                code, output = running.join()
                seconds = time.monotonic() - start
        print("exit code %d after %.2f s" % (code, seconds))
        if code != expected or seconds >= 2 or not had_file or port_file.exists() or "dropped" not in output:
            problems.append("--count %d: exit code %d, %.2f s\n%s" % (count, code, seconds, output))
print("\n".join(problems))
sys.exit(1 if problems else 0)
