"""Two threads, each loading and saving its own 64 MiB image, against one
thread doing both in turn: load and save run without the GIL, so on two
cores the threads should take about half the time (at most 0.65x).

    PYTHONPATH=out/native/python /usr/bin/python3 bench/python_threads.py
"""

import threading
import time

import zelk_elf

SIZE = 64 << 20
ROUNDS = 5


def image():
    elf = zelk_elf.ELF()
    elf.set_section(".big", bytes(SIZE))
    return elf.save()


def round_trip(data):
    zelk_elf.load(data).save()


def timed(run):
    best = float("inf")
    for _ in range(ROUNDS):
        start = time.perf_counter()
        run()
        best = min(best, time.perf_counter() - start)
    return best


def main():
    images = [image(), image()]

    def in_turn():
        for data in images:
            round_trip(data)

    def in_threads():
        threads = [threading.Thread(target=round_trip, args=(d,)) for d in images]
        for t in threads:
            t.start()
        for t in threads:
            t.join()

    # The floor: the three copies a load and a save make of an image (the
    # input kept, the saved image, the bytes returned), in turn.
    floor = timed(lambda: [bytearray(d) for d in images for _ in range(3)])
    sequential, parallel = timed(in_turn), timed(in_threads)
    print(f"two 64 MiB load+save in turn:   {sequential * 1e3:7.1f} ms")
    print(f"the same in two threads:        {parallel * 1e3:7.1f} ms "
          f"({parallel / sequential:.2f}x, at most 0.65x wanted)")
    print(f"floor, their copies in turn:    {floor * 1e3:7.1f} ms")


if __name__ == "__main__":
    main()
