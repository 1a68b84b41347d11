#!/usr/bin/env python3
# Splits the on-processor samples of a profiled backup by where they were taken: the engine's
# inserts, reads, Close (index builds, commit), create and open; the access layer; the copy to
# the second root.
#
#   perf record -F 499 -g --call-graph dwarf,8192 -o backup.perf \
#       build/main/toverinctl backup --root SITE --base 0 --all
#   perf script -i backup.perf -F comm,tid,ip,sym > backup.txt
#   bench/backup_profile.py backup.txt
import collections
import sys

samples=[]; cur=None
for line in open(sys.argv[1]):
    if not line.strip():
        if cur is not None: samples.append(cur); cur=None
        continue
    if not line.startswith('\t') and not line.startswith(' '):
        cur=[]; continue
    parts=line.strip().split(None,1)
    cur.append(parts[1] if len(parts)>1 else parts[0])
if cur: samples.append(cur)
cats=collections.Counter()
def has(st, name): return any(name in f for f in st)
for st in samples:
    if has(st,'BTRCALL'):
        if has(st,'LeaveAcceleratedMode') or has(st,'CloseHandle'):
            c='engine: Close (index builds, commit, sync)' 
            if has(st,'BuildDeferredIndexes'): c='engine: Close: deferred index builds'
        elif has(st,'RecordFile::Insert'): c='engine: Insert'
        elif has(st,'CopyRecords'): c='engine: reads (Get Next/Previous/positioning)'
        else: c='engine: create/open/stat'
    elif has(st,'CopyRecords'):
        if has(st,'HistoryLine') or has(st,'Printable') or has(st,'NoteStatusInHistory') or has(st,'AddHistoryLine'): c='layer: call-history line'
        elif has(st,'BTRieve_Reel'): c='layer: BTRieve_Reel buffer copies'
        elif has(st,'BTRieve'): c='layer: BTRieve other'
        else: c='layer: CopyRecords itself (key compare, copies)'
    elif has(st,'File_Copy') or has(st,'copy_file') or has(st,'CopyFile'): c='second-root File_Copy'
    elif has(st,'BackupData'): c='BackupData other'
    else: c='outside BackupData'
    cats[c]+=1
n=len(samples)
for c,v in cats.most_common(): print(f"{100*v/n:6.1f}%  {v:5d}  {c}")
print(n,'samples')
