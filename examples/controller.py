#!/usr/bin/python3
"""A P4Runtime controller: writes an entry to each of the agent's tables, reads them back and removes them.

    PYTHONPATH=build/release/python examples/controller.py unix:/dev/shm/tolmar-$(id -u)/p4runtime.sock
(the build generates the messages; python3-grpcio and python3-protobuf have to be installed)
"""
import queue, sys
from ipaddress import ip_address

import grpc
from google.rpc import status_pb2
from p4.v1 import p4runtime_pb2 as p4, p4runtime_pb2_grpc

DEVICE = 1


def to_bytes(value):
    return int(value).to_bytes((int(value).bit_length() + 7) // 8 or 1, "big")


class Controller:
    def __init__(self, target):
        options = [("grpc.max_metadata_size", 1 << 20)]  # room for the errors of a large batch
        self.stub = p4runtime_pb2_grpc.P4RuntimeStub(grpc.insecure_channel(target, options))
        info = self.stub.GetForwardingPipelineConfig(p4.GetForwardingPipelineConfigRequest(device_id=DEVICE)).config.p4info
        self.tables = {table.preamble.name: table for table in info.tables}
        self.actions = {action.preamble.id: action for action in info.actions}

    def arbitrate(self, **election_id):
        update = p4.MasterArbitrationUpdate(device_id=DEVICE, **election_id)
        self.requests.put(p4.StreamMessageRequest(arbitration=update))
        return next(self.notices).arbitration

    def become_primary(self):
        self.requests = queue.SimpleQueue()  # primary while the stream is open
        self.notices = self.stub.StreamChannel(iter(self.requests.get, None))
        highest = self.arbitrate().election_id  # of all that there have been
        high, low = divmod((highest.high << 64) + highest.low + 1, 1 << 64)
        self.election_id = p4.Uint128(high=high, low=low)
        status = self.arbitrate(election_id=self.election_id).status
        assert status.code == 0, f"another controller is primary: {status.message}"

    def entry(self, table_name, priority=0, **values):
        """An entry of values by name; one for a ternary field is a pair of value and mask."""
        table = self.tables[table_name]
        entry = p4.TableEntry(table_id=table.preamble.id, priority=priority)
        for field in table.match_fields:
            if field.match_type == field.EXACT:
                entry.match.add(field_id=field.id).exact.value = to_bytes(values.pop(field.name))
            elif field.name in values:  # a ternary field that is left out matches everything
                ternary = entry.match.add(field_id=field.id).ternary
                ternary.value, ternary.mask = map(to_bytes, values.pop(field.name))
        action = entry.action.action
        action.action_id = table.action_refs[0].id
        for param in self.actions[action.action_id].params:
            action.params.add(param_id=param.id, value=to_bytes(values.pop(param.name, 0)))
        if values:
            raise KeyError(f"{table_name} has no {', '.join(values)}")
        return entry

    def write(self, kind, entries):
        """Prints the error of each update that fails; the others are in effect nevertheless."""
        request = p4.WriteRequest(device_id=DEVICE, election_id=self.election_id)
        for entry in entries:
            request.updates.add(type=kind).entity.table_entry.CopyFrom(entry)
        try:
            self.stub.Write(request)
        except grpc.RpcError as failure:
            trailers = dict(failure.trailing_metadata())
            if "grpc-status-details-bin" not in trailers:
                raise
            status = status_pb2.Status.FromString(trailers["grpc-status-details-bin"])
            for number, error in enumerate(p4.Error.FromString(detail.value) for detail in status.details):
                if error.canonical_code != 0:
                    print(f"update {number}: error {error.canonical_code}: {error.message}")

    def read(self):
        request = p4.ReadRequest(device_id=DEVICE)
        request.entities.add().table_entry.SetInParent()  # all entries of all tables
        return [entity.table_entry for answer in self.stub.Read(request) for entity in answer.entities]


def main():
    controller = Controller(sys.argv[1])
    controller.become_primary()
    tunnel = dict(protocol=17, l4DestPort=4789, l4SrcPort=0, l3Iif=4097, tunnelType=1)
    entries = [
        controller.entry("l3IifTH3", l3Iif=4097, vrf=10),
        controller.entry("myStationTcamTH3", priority=100, macAddr=(0x5E005301, 0xFFFFFFFFFFFF), ipv4TerminationAllowed=1),
        controller.entry("l3TunnelIpv4TH3", sip=ip_address("192.0.2.1"), dip=ip_address("198.51.100.1"), **tunnel),
        controller.entry("l3TunnelIpv6TH3", sip=ip_address("2001:db8::1"), dip=ip_address("2001:db8::2"), **tunnel),
    ]
    controller.write(p4.Update.INSERT, entries + [controller.entry("l3IifTH3", l3Iif=4098, vrf=1 << 16)])  # too wide
    found = sum(entry in entries for entry in controller.read())
    print(f"{found} of {len(entries)} entries were read back as written")
    controller.write(p4.Update.DELETE, entries)


main()
