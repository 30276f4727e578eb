#!/usr/bin/env python3
"""Mutation testing: how many of the small faults in faults.txt does the suite catch?

  tests/mutants/run.py [--suite REV] [--only REGEX] [--jobs N]

Each fault is applied in turn to a scratch copy of the tree in
/tmp/mutants-<suite>/src (never to this working tree), built there with
AddressSanitizer and UndefinedBehaviorSanitizer, and the suite is run with
ctest. A fault is caught when a test fails or times out. One build directory
serves every fault, so each build only redoes what the fault touched.
--suite REV takes tests/ and fuzz/ from git revision REV instead of the
working tree; --only runs the faults whose row matches REGEX.
Not part of CI: a run over every fault takes tens of minutes.
"""
import argparse, io, os, re, signal, subprocess, sys, tarfile, time

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(HERE))
SUITE_DIRS = ('tests/', 'fuzz/')
# Slow tests run only after the quick ones pass, so most faults stop early.
SLOW = r'Properties|Differential|Concurrency|ObflWire|fuzz\.seed'
SKIP = r'^package\.'  # builds Debian packages; meaningless for a sanitized build
CONFIGURE = ['-G', 'Ninja', '-DCMAKE_BUILD_TYPE=Mutants', '-DCMAKE_C_FLAGS_MUTANTS=-O1',
             '-DCMAKE_CXX_FLAGS_MUTANTS=-O1', '-DMIVO_SANITIZE=address,undefined',
             '-DMIVO_BUILD_TESTS=ON', '-DMIVO_BUILD_EXAMPLES=ON', '-DMIVO_WARNINGS_AS_ERRORS=OFF',
             # A test binary that cannot list its tests fails the test run, not the build.
             '-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST']
ENV = dict(os.environ, ASAN_OPTIONS='detect_leaks=1:abort_on_error=1', UBSAN_OPTIONS='halt_on_error=1')


def columns(line):
    """Splits a row at '|'; '\\|', '\\n' and '\\\\' stand for '|', a line break and '\\'."""
    cols, cur, chars = [], '', iter(line)
    for c in chars:
        if c == '\\':
            n = next(chars, '')
            cur += '\n' if n == 'n' else n
        elif c == '|':
            cols, cur = cols + [cur.strip(' ')], ''
        else:
            cur += c
    return cols + [cur.strip(' ')]


def git(*args):
    return subprocess.run(['git', '-C', REPO, *args], check=True, capture_output=True).stdout


def wanted_tree(rev):
    """Path -> (contents, mode) of the tree to test: the working tree, with the suite from rev."""
    files = {}
    for path in git('ls-files', '-z', '--cached', '--others', '--exclude-standard').decode().split('\0'):
        full = os.path.join(REPO, path)
        if path and os.path.isfile(full) and not (rev and path.startswith(SUITE_DIRS)):
            with open(full, 'rb') as f:
                files[path] = (f.read(), os.stat(full).st_mode & 0o777)
    if rev:
        others = git('diff', '--name-only', rev, '--', '.', *[':!' + d for d in SUITE_DIRS], ':!*.md').decode()
        if others.strip():
            print(f'warning: outside tests/ and fuzz/ the working tree differs from {rev}:\n{others}')
        with tarfile.open(fileobj=io.BytesIO(git('archive', rev, *SUITE_DIRS))) as tar:
            for m in tar.getmembers():
                if m.isfile():
                    files[m.name] = (tar.extractfile(m).read(), m.mode & 0o777)
    return files


def sync(files, dest):
    """Makes dest hold exactly these files, rewriting (so newer) only those that changed."""
    for path, (data, mode) in files.items():
        full = os.path.join(dest, path)
        if not os.path.isfile(full) or open(full, 'rb').read() != data:
            os.makedirs(os.path.dirname(full), exist_ok=True)
            with open(full, 'wb') as f:
                f.write(data)
        os.chmod(full, mode)
    for root, _, names in os.walk(dest):
        for name in names:
            if os.path.relpath(os.path.join(root, name), dest) not in files:
                os.remove(os.path.join(root, name))


def run(cmd, log, timeout):
    """Runs cmd into log; the exit code, or None when it ran out of time (then all of it is killed)."""
    with open(log, 'w') as out:
        p = subprocess.Popen(['nice', *cmd], stdout=out, stderr=subprocess.STDOUT, env=ENV, start_new_session=True)
        try:
            return p.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            os.killpg(p.pid, signal.SIGKILL)
            p.wait()
            return None


def test(build, jobs, work):
    """'' when the suite passes, else why not: the failing tests or 'timeout'."""
    ctest = ['ctest', '--test-dir', build, '--stop-on-failure', '--timeout', '120', '-j', str(jobs)]
    for phase in (['-E', f'{SLOW}|{SKIP}'], ['-R', SLOW, '-E', SKIP]):
        log = os.path.join(work, 'ctest.log')
        rc = run(ctest + phase, log, 900)
        if rc is None:
            return 'timeout'
        if rc != 0:
            text = open(log).read()
            failed = re.findall(r'^\s*\d+ - (.+?)(?:  #.*)? \(([^()]*)\)$', text, re.M)
            return ', '.join(f'{name} ({why})' for name, why in failed[:2]) or 'ctest failed'
    return ''


def main():
    ap = argparse.ArgumentParser(description=__doc__.split('\n')[0])
    ap.add_argument('--suite', metavar='REV', help='take tests/ and fuzz/ from this git revision')
    ap.add_argument('--only', metavar='REGEX', help='run only the faults whose row matches REGEX')
    ap.add_argument('--jobs', type=int, default=2)
    args = ap.parse_args()
    started = time.time()
    work = f'/tmp/mutants-{git("rev-parse", "--short", args.suite).decode().strip() if args.suite else "worktree"}'
    src, build = os.path.join(work, 'src'), os.path.join(work, 'build')
    os.makedirs(src, exist_ok=True)
    sync(wanted_tree(args.suite), src)

    faults, bad = [], []
    with open(os.path.join(HERE, 'faults.txt')) as f:
        for n, line in enumerate(f, 1):
            if not line.strip() or line.startswith('#') or (args.only and not re.search(args.only, line)):
                continue
            cols = columns(line.rstrip('\n'))
            path = os.path.join(src, cols[0])
            if len(cols) != 4 or not os.path.isfile(path) or open(path).read().count(cols[1]) != 1:
                bad.append(f'faults.txt:{n}: needs 4 columns and text found exactly once in its file')
            faults.append(cols)
    if bad or not faults:
        sys.exit('\n'.join(bad) or 'no faults selected')

    print(f'suite: {args.suite or "working tree"}; scratch tree {src}, build {build}', flush=True)
    log = os.path.join(work, 'build.log')
    if run(['cmake', '-S', src, '-B', build, *CONFIGURE], log, 600) != 0 or \
            run(['cmake', '--build', build, '--parallel', str(args.jobs)], log, 3600) != 0:
        sys.exit(f'the unmutated tree does not build: see {log}')
    if why := test(build, args.jobs, work):
        sys.exit(f'the unmutated tree fails its suite: {why}; see {work}/ctest.log')

    counts = {'caught': 0, 'MISSED': 0, 'build-failed': 0}
    for file, find, replace, what in faults:
        path = os.path.join(src, file)
        original = open(path).read()
        with open(path, 'w') as f:
            f.write(original.replace(find, replace))
        t = time.time()
        if run(['cmake', '--build', build, '--parallel', str(args.jobs)], log, 1800) != 0:
            verdict, why = 'build-failed', ''
        else:
            why = test(build, args.jobs, work)
            verdict = 'caught' if why else 'MISSED'
        with open(path, 'w') as f:  # a fresh write: newer than the objects, so the next build redoes them
            f.write(original)
        counts[verdict] += 1
        print(f'{verdict:<12} {file}: {what}' + (f'  [{why}]' if why else '') + f'  ({time.time() - t:.0f} s)',
              flush=True)
    ran = counts['caught'] + counts['MISSED']
    print(f'caught {counts["caught"]} / total {ran} (missed {counts["MISSED"]}, build-failed '
          f'{counts["build-failed"]}); {(time.time() - started) / 60:.1f} min in all')


if __name__ == '__main__':
    main()
