"""Sensor data records (IPMI 2.0, 43.1 and 43.2) for the simulated BMC, whose file is nothing but one behind the other."""
from dataclasses import dataclass

FULL, COMPACT = 1, 2
UNSIGNED, TWOS_COMPLEMENT = 0, 2
THRESHOLD, DIGITAL, SENSOR_SPECIFIC = 0x01, 0x03, 0x6F


@dataclass
class Sensor:
    number: int
    name: str
    entity: int
    instance: int
    sensor_type: int
    reading_type: int = THRESHOLD
    unit: int = 0
    sign: int = UNSIGNED
    linearization: int = 0
    m: int = 1
    b: int = 0
    b_exp: int = 0
    r_exp: int = 0


def _head(sensor: Sensor, record_type: int, record_id: int) -> bytearray:
    record = bytearray(48 if record_type == FULL else 32)
    record[0:4] = record_id.to_bytes(2, "little") + bytes([0x51, record_type])
    record[5] = 0x20                # the BMC owns it
    record[7] = sensor.number
    record[8], record[9] = sensor.entity, sensor.instance
    record[10] = 0x67               # scanning and events are on from the start
    record[12], record[13] = sensor.sensor_type, sensor.reading_type
    record[14:20] = b"\xFF" * 6     # every state may be told, and read
    return record


def _close(record: bytearray, name: str) -> bytes:
    record[-1] = 0xC0 | len(name)   # 8-bit text
    record += name.encode("latin-1")
    record[4] = len(record) - 5
    return bytes(record)


def full(sensor: Sensor, record_id: int) -> bytes:
    record = _head(sensor, FULL, record_id)
    record[20] = sensor.sign << 6
    record[21] = sensor.unit
    record[23] = sensor.linearization
    record[24], record[25] = sensor.m & 0xFF, sensor.m >> 2 & 0xC0
    record[26], record[27] = sensor.b & 0xFF, sensor.b >> 2 & 0xC0
    record[29] = (sensor.r_exp & 0x0F) << 4 | (sensor.b_exp & 0x0F)
    return _close(record, sensor.name)


def compact(sensor: Sensor, record_id: int) -> bytes:
    record = _head(sensor, COMPACT, record_id)
    record[20] = 0xC0               # no numbers
    return _close(record, sensor.name)


def repository(sensors: list[Sensor]) -> bytes:
    """The simulated BMC has a sensor, 0 to 19, where a compact record names it. So one goes ahead of each full record:
    a sensor without a number that nobody knows how to read, behind which the full one counts."""
    records: list[bytes] = []
    for sensor in sensors:
        records.append(compact(sensor, len(records) + 1))
        if sensor.reading_type == THRESHOLD:
            records.append(full(sensor, len(records) + 1))
    return b"".join(records)
