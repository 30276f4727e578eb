#!/usr/bin/env python3
"""Plants each fault of faults.txt in turn and reports whether the suite catches it.

  tests/mutants/run.py [--suite REV] [--only REGEX] [--jobs N]

The faults go into a scratch copy, /tmp/mutants-<checkout>-<suite>/src, never
into this tree. It is built with ASan+UBSan in one build directory, so each
fault costs only the rebuild of what it touches; a fault is caught when a
test fails or times out. --suite REV takes tests/ and fuzz/ from revision REV. Not in CI.
"""
import argparse, io, os, re, signal, subprocess, sys, tarfile, time

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(HERE))
SUITE = ('tests/', 'fuzz/')
SLOW = r'Properties|Differential|Concurrency|ObflWire|fuzz\.seed'  # run once the quick ones pass
SKIP = r'^package\.'  # builds Debian packages, which a sanitized build cannot
CONFIGURE = ['-G', 'Ninja', '-DCMAKE_BUILD_TYPE=Mutants', '-DCMAKE_C_FLAGS_MUTANTS=-O1',
             '-DCMAKE_CXX_FLAGS_MUTANTS=-O1', '-DMIVO_SANITIZE=address,undefined', '-DMIVO_BUILD_TESTS=ON',
             '-DMIVO_BUILD_EXAMPLES=ON', '-DMIVO_WARNINGS_AS_ERRORS=OFF',
             '-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST']  # a test binary's crash fails a test, not the build
HEADERS = ['system_pkg/obfl/generated_include-x86_64/mivo_obfl_mgr_def.h',
           'system_pkg/obfl/generated_include-x86_64/mivo_obfl_mgr_init.h',
           'shared_pkg/common/protos/mivo_tesk_eid_def.h', 'shared_pkg/common/protos/mivo_tesk_eid_init.h']
ENV = dict(os.environ, ASAN_OPTIONS='detect_leaks=1:abort_on_error=1', UBSAN_OPTIONS='halt_on_error=1')


def columns(line):
    """A row's columns: split at '|', where '\\|', '\\n' and '\\\\' stand for '|', a line break and '\\'."""
    marks = {'\\\\': '\0', '\\|': '\1', '\\n': '\n'}
    for k, v in marks.items():
        line = line.replace(k, v)
    return [c.strip(' ').replace('\1', '|').replace('\0', '\\') for c in line.split('|')]


def git(*args):
    return subprocess.run(['git', '-C', REPO, *args], check=True, capture_output=True).stdout


def tree(rev):
    """Path -> (contents, mode): the working tree, with the suite from rev when given."""
    files = {}
    for path in git('ls-files', '-z', '--cached', '--others', '--exclude-standard').decode().split('\0'):
        full = os.path.join(REPO, path)
        if path and os.path.isfile(full) and not (rev and path.startswith(SUITE)):
            files[path] = (open(full, 'rb').read(), os.stat(full).st_mode & 0o777)
    if rev:
        if others := git('diff', '--name-only', rev, '--', '.', *[':!' + d for d in SUITE], ':!*.md').decode():
            print(f'warning: outside the suite the working tree differs from {rev}:\n{others}')
        with tarfile.open(fileobj=io.BytesIO(git('archive', rev, *SUITE))) as tar:
            files.update({m.name: (tar.extractfile(m).read(), m.mode & 0o777) for m in tar if m.isfile()})
    return files


def sync(files, dest):
    """Makes dest hold exactly these files; only changed ones are rewritten, so only they look newer."""
    for path, (data, mode) in files.items():
        full = os.path.join(dest, path)
        if not os.path.isfile(full) or open(full, 'rb').read() != data:
            os.makedirs(os.path.dirname(full), exist_ok=True)
            open(full, 'wb').write(data)
        os.chmod(full, mode)
    for full in (os.path.join(r, n) for r, _, names in os.walk(dest) for n in names):
        if os.path.relpath(full, dest) not in files:
            os.remove(full)


def run(cmd, log, timeout):
    """cmd's exit code, or None when it ran out of time (it is then killed with all its children)."""
    with open(log, 'w') as out:
        p = subprocess.Popen(['nice', *cmd], stdout=out, stderr=subprocess.STDOUT, env=ENV, start_new_session=True)
        try:
            return p.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            os.killpg(p.pid, signal.SIGKILL)
            p.wait()
            return None


def failures(build, jobs, log):
    """'' when the suite passes, else the first failing tests, or 'timeout'."""
    ctest = ['ctest', '--test-dir', build, '--stop-on-failure', '--timeout', '120', '-j', str(jobs)]
    for phase in (['-E', f'{SLOW}|{SKIP}'], ['-R', SLOW, '-E', SKIP]):
        rc = run(ctest + phase, log, 900)
        if rc != 0:
            failed = re.findall(r'^\s*\d+ - (.+?)(?:  #.*)? \(([^()]*)\)$', open(log).read(), re.M)
            return 'timeout' if rc is None else ', '.join(f'{n} ({why})' for n, why in failed[:2]) or 'ctest failed'
    return ''


def main():
    ap = argparse.ArgumentParser(description=__doc__.split('\n')[0])
    ap.add_argument('--suite', metavar='REV', help='take tests/ and fuzz/ from this git revision')
    ap.add_argument('--only', metavar='REGEX', help='run only the faults whose row matches REGEX')
    ap.add_argument('--jobs', type=int, default=2)
    args = ap.parse_args()
    started = time.time()
    # Named after this checkout too, so that runs from two worktrees never share a scratch tree.
    work = f'/tmp/mutants-{os.path.basename(REPO)}-' + (
        git('rev-parse', '--short', args.suite).decode().strip() if args.suite else 'worktree')
    src, build, log = work + '/src', work + '/build', work + '/build.log'
    os.makedirs(src, exist_ok=True)
    sync(tree(args.suite), src)

    faults = []
    for n, line in enumerate(open(os.path.join(HERE, 'faults.txt')), 1):
        if line.strip() and not line.startswith('#') and not (args.only and not re.search(args.only, line)):
            cols = columns(line.rstrip('\n'))
            path = os.path.join(src, cols[0])
            if len(cols) != 4 or not os.path.isfile(path) or open(path).read().count(cols[1]) != 1:
                sys.exit(f'faults.txt:{n}: needs four columns, and its text exactly once in its file')
            faults.append(cols)
    if not faults:
        sys.exit('no faults selected')

    print(f'suite: {args.suite or "working tree"}; scratch tree {src}, build {build}', flush=True)
    build_cmd = ['cmake', '--build', build, '--parallel', str(args.jobs)]
    if run(['cmake', '-S', src, '-B', build, *CONFIGURE], log, 600) != 0 or run(build_cmd, log, 3600) != 0:
        sys.exit(f'the unmutated tree does not build: see {log}')
    if why := failures(build, args.jobs, work + '/ctest.log'):
        sys.exit(f'the unmutated tree fails its suite: {why}; see {work}/ctest.log')

    counts = dict(caught=0, MISSED=0, **{'build-failed': 0})
    for file, find, replace, what in faults:
        path, t = os.path.join(src, file), time.time()
        original = open(path).read()
        # A fault in a description is planted as a developer would make the
        # change: with the public headers written anew, so that only the
        # tables' hand-worked bytes, not the header check, can catch it.
        restore = {h: open(os.path.join(src, h)).read() for h in HEADERS} if '/catalogue/' in file else {}
        open(path, 'w').write(original.replace(find, replace))
        built = (not restore or run(build_cmd + ['--target', 'regenerate_headers'], log, 600) == 0) and \
            run(build_cmd, log, 1800) == 0
        why = failures(build, args.jobs, work + '/ctest.log') if built else None
        for name, text in [(file, original), *restore.items()]:
            open(os.path.join(src, name), 'w').write(text)  # newer than the objects: the next build redoes them
        verdict = 'build-failed' if why is None else 'caught' if why else 'MISSED'
        counts[verdict] += 1
        print(f'{verdict:<12} {file}: {what}' + (f'  [{why}]' if why else '') + f'  ({time.time() - t:.0f} s)',
              flush=True)
    print(f'caught {counts["caught"]} / total {counts["caught"] + counts["MISSED"]} (missed {counts["MISSED"]}, '
          f'build-failed {counts["build-failed"]}); {(time.time() - started) / 60:.1f} min in all')


if __name__ == '__main__':
    main()
