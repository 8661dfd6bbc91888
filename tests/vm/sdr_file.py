"""Sensor data records for QEMU's simulator of a BMC.

The simulator takes a sensor's presence from compact records alone. So a sensor with a full record gets a compact one
with its number beside it, on another LUN, which the simulator does not look at and which describes no sensor that an
agent offers.
"""
from dataclasses import dataclass

FULL, COMPACT = 1, 2
UNSIGNED, ONES_COMPLEMENT, TWOS_COMPLEMENT, NO_NUMBER = 0, 1, 2, 3
THRESHOLD, DIGITAL, SENSOR_SPECIFIC = 0x01, 0x03, 0x6F
OTHER_LUN = 1


@dataclass
class Sensor:
    number: int
    text: str
    kind: int = FULL
    entity: int = 7
    instance: int = 1
    sensor_type: int = 1
    reading_type: int = THRESHOLD
    number_format: int = UNSIGNED
    unit: int = 0
    percentage: bool = False
    linearization: int = 0
    m: int = 1
    b: int = 0
    r_exp: int = 0
    b_exp: int = 0
    lun: int = 0


def record(sensor: Sensor) -> bytes:
    full = sensor.kind == FULL
    made = bytearray(47 if full else 31)
    made[2:4] = 0x51, sensor.kind
    made[5:10] = 0x20, sensor.lun, sensor.number, sensor.entity, sensor.instance
    made[10:14] = 0x7F, 0x40, sensor.sensor_type, sensor.reading_type
    made[14:20] = bytes([0xFF, 0x7F] * 3)
    made[20] = (sensor.number_format if full else NO_NUMBER) << 6 | int(sensor.percentage)
    made[21] = sensor.unit
    if full:
        made[23] = sensor.linearization
        made[24:28] = sensor.m & 0xFF, sensor.m >> 2 & 0xC0, sensor.b & 0xFF, sensor.b >> 2 & 0xC0
        made[29] = (sensor.r_exp & 0x0F) << 4 | sensor.b_exp & 0x0F
    text = sensor.text.encode()
    made += bytes([0xC0 | len(text)]) + text
    made += bytes(max(0, (64 if full else 48) - len(made)))
    made[4] = len(made) - 5
    return bytes(made)


def sdr_file(sensors: list[Sensor]) -> bytes:
    whole = b""
    for sensor in sensors:
        whole += record(sensor)
        if sensor.kind == FULL:
            whole += record(Sensor(sensor.number, "presence", kind=COMPACT, lun=OTHER_LUN))
    return whole
