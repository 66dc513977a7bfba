# SPDX-License-Identifier: MIT
"""Real plugins that a test calls as the application does, with two sockets to hand over."""

from faulty_calls import FakeApplication
from media import EXACT_HEAP, Pair, held, own_address
from processes import until
from wire import Fd, U32

LINE = "fxs1.EndPoint.FXS1"
CHANNEL = "dsp1.DSPPlugin.DSP.D1.DSP_CHANNEL.C1"
LINE_0 = ("ep_line_id", U32(0))


class Plugin(FakeApplication):
    """A real plugin, called by us, with everything that it holds at first."""

    def __init__(self, system, *words, **environment):
        system.environment |= {**EXACT_HEAP, **environment}
        super().__init__(system, *words)
        self.host = own_address()
        self.near, self.far = Pair(self.host), Pair(self.host)
        self.near.connect(self.far)
        self.far.connect(self.near)
        self.before = held(self.plugin)

    def sockets(self, count=2):
        """So many descriptors: a media and a control socket, again and again."""
        return [Fd(self.near.filenos()[place % 2]) for place in range(count)]

    def holds(self, more=0):
        """It holds what it held at first, and so many sockets."""
        wanted = sorted(self.before + ["socket"] * more)
        until(f"it holds {more} sockets more than at first", lambda: held(self.plugin) == wanted)

    def close(self):
        self.near.close()
        self.far.close()
        super().close()


def called_telephone(system):
    """What a fixture gives: a plugin of one telephone, LINE."""
    one = Plugin(system, "fxs1", "fxs_plugin", "--lines", "1", ZIL_TRACE_LEVEL="400")
    yield one
    one.close()


def called_channel(system):
    """The same of a DSP plugin with one channel, CHANNEL."""
    one = Plugin(system, "dsp1", "dsp_plugin", ZIL_TRACE_LEVEL="400")
    assert one.call("dsp1.DSPPlugin", "createDsp", [("name", "D1")]).result is True
    assert one.call("dsp1.DSPPlugin.DSP.D1", "createDspChannel", [("name", "C1")]).result is True
    yield one
    one.close()
